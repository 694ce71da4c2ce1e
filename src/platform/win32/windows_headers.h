// The system's headers in the order that they need, without the macros that would rename our own
// functions.
#pragma once

#include <winsock2.h>
// winsock2.h stands before the others.
#include <mstcpip.h>
#include <windows.h>
#include <ws2tcpip.h>

// Names of ours that the headers rename by macros. A class that one file sees with the macro and
// another without it would have two names.
#undef GetComputerName
#undef ReplaceFile
#undef SendMessage

#include <string>
#include <string_view>

namespace Veldrift {

// UTF-8 and the system's wide text. What can't be converted gives an empty text.
std::string NarrowText(std::wstring_view wide);
std::wstring WideText(std::string_view utf8);

// The system's text for an error number, without trailing white space; empty if it has none.
std::string SystemMessage(DWORD error);

}  // namespace Veldrift
