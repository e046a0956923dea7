# 32-bit ARM, run under user-mode emulation. SQLite comes from a sysroot folder filled by scripts/sysroot.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
find_program(CMAKE_C_COMPILER NAMES arm-linux-gnueabihf-gcc arm-linux-gnueabihf-gcc-12)
find_program(CMAKE_CXX_COMPILER NAMES arm-linux-gnueabihf-g++ arm-linux-gnueabihf-g++-12)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(SQLite3_INCLUDE_DIR ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/armhf/usr/include)
set(SQLite3_LIBRARY ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/armhf/usr/lib/arm-linux-gnueabihf/libsqlite3.a)
