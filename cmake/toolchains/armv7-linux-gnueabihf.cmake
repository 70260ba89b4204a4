# ARMv7 Linux with Debian's cross compiler; programs run under user-mode emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# ARM's compilers describe no stack frames unless asked, and a backtrace ends at the first such frame.
# Its notes on what changed in GCC 7.1 tell nobody anything: nothing here was built by an older one.
set(CMAKE_C_FLAGS_INIT "-funwind-tables -Wno-psabi")
set(CMAKE_CXX_FLAGS_INIT "-funwind-tables -Wno-psabi")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm;-L;/usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
