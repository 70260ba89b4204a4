// Unsupported: how the host declines what Neutrino can do and it cannot.
#pragma once

namespace host {

/// Writes one line on standard error, so that nobody has to search for the reason; the result is `error`.
int unsupported(const char* what, int error);

}  // namespace host
