# Writes the files FRAME, STYLE and PROGRAM as the functions of page_parts.h into OUTPUT.

string(CONCAT text "// Made by the build.\n#include \"analyze/report/page_parts.h\"\n\n"
  "namespace bootforge::analyze {\nnamespace {\n\n")
foreach(part Frame Style Program)
  string(TOUPPER ${part} variable)
  file(READ ${${variable}} bytes HEX)
  string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
  string(APPEND text "constexpr unsigned char k${part}[] = {${bytes}};\n")
endforeach()
string(APPEND text "\n// NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast)\n"
  "template <typename Bytes>\nstd::string_view textOf(const Bytes& bytes) {\n"
  "  return {reinterpret_cast<const char*>(bytes), sizeof bytes};\n}\n\n}  // namespace\n\n")
foreach(part Frame Style Program)
  string(APPEND text
    "std::string_view page${part}() { return textOf(k${part}); }\n")
endforeach()
string(APPEND text "\n}  // namespace bootforge::analyze\n")
file(WRITE ${OUTPUT} "${text}")
