# cmake "-DOBJECTS=NAME=FILE;..." -DOUTPUT=SOURCE -P embed_objects.cmake: a C++ source with the bytes of
# files, by name.
set(text "#include \"tests/unit/native/shared_objects.h\"\n#include <map>\n")
string(APPEND text "namespace bootforge::test {\nnamespace {\n")
set(entries)
foreach(object ${OBJECTS})
  string(REGEX MATCH "^([^=]+)=(.*)$" _ "${object}")
  set(name ${CMAKE_MATCH_1})
  file(READ ${CMAKE_MATCH_2} bytes HEX)
  string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
  string(APPEND text "constexpr unsigned char k_${name}[] = {${bytes}};\n")
  string(APPEND entries "    {\"${name}\", {k_${name}, k_${name} + sizeof k_${name}}},\n")
endforeach()
string(APPEND text "}  // namespace\nstd::string sharedObject(const std::string& name) {\n"
       "  static const std::map<std::string, std::string> objects{\n${entries}  };\n"
       "  return objects.at(name);\n}\n}  // namespace bootforge::test\n")
file(WRITE ${OUTPUT} "${text}")
