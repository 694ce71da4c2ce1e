#include "setup_view.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <vector>

namespace Veldrift {

namespace {

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

}  // namespace

std::string ChangesOf(const std::string& seen, const std::string& text) {
  const std::vector<std::string> before = LinesOf(seen), now = LinesOf(text);
  if (before.size() != now.size()) return text;
  std::string changes, heading;
  for (size_t i = 0; i < now.size(); ++i) {
    if (i == 0 || now[i - 1].empty()) heading = now[i];
    if (now[i] != before[i]) changes += heading + ": " + now[i] + "\n";
  }
  return changes;
}

SetupView::SetupView(const std::filesystem::path& file) : file_(file) {
  std::error_code ignored;
  std::filesystem::remove(file_, ignored);
}

std::string SetupView::Take() {
  std::ifstream file(file_, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (text.empty()) return {};
  std::string changes = ChangesOf(seen_, text);
  seen_ = std::move(text);
  return changes;
}

}  // namespace Veldrift
