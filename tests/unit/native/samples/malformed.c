// Symbols of the right names and nothing else that is right.
__attribute__((visibility("default"))) int metadata = 3;
__attribute__((visibility("default"))) void* operations = 0;
