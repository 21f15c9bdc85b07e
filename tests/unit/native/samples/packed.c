// The same as full.c, with packed relocations.
#include "full.c"
