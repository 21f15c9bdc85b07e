#include "platform/dictionary.h"

#include "platform/linux/dictionary_values.h"

Dictionary* Dictionary_Create() { return new Dictionary; }

void Dict_SetString(Dictionary* dictionary, const char* value, const char* key) {
  if (dictionary && value && key) dictionary->values.insert_or_assign(key, value);
}

void Dict_SetBool(Dictionary* dictionary, bool value, const char* key) {
  Dict_SetString(dictionary, value ? "true" : "false", key);
}

void Dictionary_Clear(Dictionary* dictionary) {
  if (dictionary) dictionary->values.clear();
}

void Dictionary_Free(Dictionary* dictionary) { delete dictionary; }

namespace host_linux {

const std::string* findString(const Dictionary* dictionary, const char* key) {
  if (!dictionary) return nullptr;
  auto found = dictionary->values.find(key);
  return found == dictionary->values.end() ? nullptr : &found->second;
}

bool readBool(const Dictionary* dictionary, const char* key, bool* value) {
  const std::string* text = findString(dictionary, key);
  if (!text) return true;
  if (*text != "true" && *text != "false") return false;
  *value = *text == "true";
  return true;
}

}  // namespace host_linux
