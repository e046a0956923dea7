# 32-bit x86 on a 64-bit host. SQLite comes from the folder that scripts/sysroot fills.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i386)
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
# The kernel headers of both word sizes are the same files; Debian keeps them under the 64-bit name.
set(CMAKE_C_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
set(CMAKE_CXX_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR "")

set(SYSROOT_I386 ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/i386)
set(SQLite3_INCLUDE_DIR ${SYSROOT_I386}/usr/include CACHE PATH "")
set(SQLite3_LIBRARY ${SYSROOT_I386}/usr/lib/i386-linux-gnu/libsqlite3.so CACHE FILEPATH "")
