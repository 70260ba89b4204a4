// What the server and its clients agree on: a message is a text, and its reply is the same text with the number of
// texts that the server has seen.
#pragma once

constexpr int kMaxText = 4096;
constexpr int kStopCode = 1;  // of the pulse that ends the server
