// The phone's trust token between runs: one line in a file that only its owner may read.
#pragma once

#include <filesystem>
#include <string>

namespace Veldrift {

// Empty if there is no file, or nothing in it that could be a token.
std::string ReadToken(const std::filesystem::path& file);

// Whether WriteToken could write it, as far as can be tried beforehand. False with the reason.
bool CanWriteToken(const std::filesystem::path& file, std::string& error);

// Replaces the file in one step. False, with the reason in `error`, if that failed.
bool WriteToken(const std::filesystem::path& file, const std::string& token, std::string& error);

}  // namespace Veldrift
