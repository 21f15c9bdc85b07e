// Records whose symbols do not say how large they are.
#include "bootforge/plugin.h"

__asm__(
    ".data\n"
    ".balign 8\n"
    ".globl operations\n"
    ".type operations, %object\n"
    "operations: .zero 16\n"
    ".globl metadata\n"
    ".type metadata, %object\n"
    "metadata: .long 1\n"
    ".zero 20\n"
    ".text\n");
