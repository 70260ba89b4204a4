// flagIf: a flag of a platform call, where it is wanted. Platforms give the value 0 to flags that they do not need.
#pragma once

constexpr int flagIf(bool isWanted, int flag) {
    return isWanted ? flag : 0;
}
