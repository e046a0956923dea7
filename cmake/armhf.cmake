# 32-bit ARM, run under user-mode emulation. SQLite comes from the folder that scripts/sysroot fills.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
find_program(ARMHF_C_COMPILER NAMES arm-linux-gnueabihf-gcc arm-linux-gnueabihf-gcc-12 REQUIRED)
find_program(ARMHF_CXX_COMPILER NAMES arm-linux-gnueabihf-g++ arm-linux-gnueabihf-g++-12 REQUIRED)
set(CMAKE_C_COMPILER ${ARMHF_C_COMPILER})
set(CMAKE_CXX_COMPILER ${ARMHF_CXX_COMPILER})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(SYSROOT_ARMHF ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/armhf)
set(SQLite3_INCLUDE_DIR ${SYSROOT_ARMHF}/usr/include CACHE PATH "")
set(SQLite3_LIBRARY ${SYSROOT_ARMHF}/usr/lib/arm-linux-gnueabihf/libsqlite3.so CACHE FILEPATH "")
