#include "app/win32/Utf16.h"

#include <windows.h>

std::wstring toUtf16(const char* text, int length) {
  if (length <= 0) return std::wstring();
  const int count = MultiByteToWideChar(CP_UTF8, 0, text, length, nullptr, 0);
  std::wstring wide(static_cast<size_t>(count), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text, length, &wide[0], count);
  return wide;
}

std::string toUtf8(const wchar_t* text) {
  const int count = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (count <= 1) return std::string();
  std::string utf8(static_cast<size_t>(count), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, &utf8[0], count, nullptr, nullptr);
  utf8.resize(static_cast<size_t>(count - 1)); // without the terminating NUL
  return utf8;
}
