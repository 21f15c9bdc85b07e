// The host's string dictionary, in which options are handed to its libraries.
#pragma once

struct Dictionary;

extern "C" {

/// A new empty dictionary; the caller frees it with Dictionary_Free.
Dictionary* Dictionary_Create();
/// Sets `key` (copied) to `value` (copied), replacing an earlier value.
void Dict_SetString(Dictionary* dictionary, const char* value, const char* key);
void Dict_SetBool(Dictionary* dictionary, bool value, const char* key);
/// Removes every key.
void Dictionary_Clear(Dictionary* dictionary);
void Dictionary_Free(Dictionary* dictionary);

}  // extern "C"
