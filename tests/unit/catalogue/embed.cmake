# cmake -DINPUT=FILE -DOUTPUT=SOURCE -P embed.cmake: a C++ source with the bytes of a file.
file(READ ${INPUT} bytes HEX)
string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
file(WRITE ${OUTPUT}
     "#include \"tests/unit/catalogue/native_sample.h\"\n"
     "namespace bootforge::test {\n"
     "namespace {\nconstexpr unsigned char kBytes[] = {${bytes}};\n}  // namespace\n"
     "std::string nativeSample() { return {kBytes, kBytes + sizeof kBytes}; }\n"
     "}  // namespace bootforge::test\n")
