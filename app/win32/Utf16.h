#pragma once
// Text between Nuklear, which speaks UTF-8, and Windows and GDI+, which speak UTF-16.
#include <string>

// The first length bytes of UTF-8 text as UTF-16; empty when length is not positive.
std::wstring toUtf16(const char* text, int length);
// NUL-terminated UTF-16 text as UTF-8, without the terminator.
std::string toUtf8(const wchar_t* text);
