#include "tests/support/document.h"

#include <cctype>
#include <fstream>
#include <stdexcept>

namespace Veldrift {

namespace {

constexpr const char* kFence = "```";

std::vector<std::string> FencedBehind(const std::string& marker, const std::string& fence) {
  std::ifstream document(VD_SOURCE_DIR "/docs/protocol.md");
  std::string line;
  while (std::getline(document, line) && !line.starts_with(marker)) {
  }
  while (std::getline(document, line) && line != fence) {
  }
  std::vector<std::string> lines;
  while (std::getline(document, line) && line != kFence) lines.push_back(line);
  if (lines.empty() || !document) throw std::runtime_error("no code block behind " + marker);
  return lines;
}

DocumentLine Read(const std::string& line) {
  const size_t bar = line.find('|');
  if (bar == line.npos || bar == 0) throw std::runtime_error("not an example: " + line);
  DocumentLine read;
  for (size_t at = 0; at < bar && line[at] != ' '; at += 3) {
    if (std::isxdigit(line[at]) == 0 || std::isxdigit(line[at + 1]) == 0 || line[at + 2] != ' ') {
      throw std::runtime_error("not bytes: " + line);
    }
    read.bytes += char(std::stoi(line.substr(at, 2), nullptr, 16));
  }
  if (bar + 2 < line.size()) read.text = line.substr(bar + 2);
  return read;
}

}  // namespace

std::vector<DocumentLine> BlockBehind(const std::string& marker) {
  std::vector<DocumentLine> lines;
  for (const std::string& line : FencedBehind(marker, kFence)) lines.push_back(Read(line));
  return lines;
}

std::vector<DocumentLine> MessagesBehind(const std::string& marker) {
  std::vector<DocumentLine> messages;
  for (DocumentLine& line : BlockBehind(marker)) {
    if (line.text.empty() && !messages.empty()) {
      messages.back().bytes += line.bytes;
    } else {
      messages.push_back(std::move(line));
    }
  }
  return messages;
}

std::string BytesBehind(const std::string& marker) {
  std::string bytes;
  for (const DocumentLine& line : BlockBehind(marker)) bytes += line.bytes;
  return bytes;
}

std::string PythonOfDocument() {
  std::string program;
  for (const std::string& line : FencedBehind("### Repair", "```python")) program += line + "\n";
  return program;
}

}  // namespace Veldrift
