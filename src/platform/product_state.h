// What the host knows about the running product. The strings live for the whole process.
#pragma once

extern "C" {

const char* ProductState_GetName();
const char* ProductState_GetVersion();
const char* ProductState_GetBuildNumberString();
const char* ProductState_GetCompilationOption();

}  // extern "C"
