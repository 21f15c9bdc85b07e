# A build for 64-bit ARM with Debian's cross compiler; scripts/cross makes the machine for it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
# Programs of the build that the build itself runs: the tests, to ask for their names.
find_program(EMULATOR NAMES qemu-aarch64-static qemu-aarch64)
set(CMAKE_CROSSCOMPILING_EMULATOR ${EMULATOR})
