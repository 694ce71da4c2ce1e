// The fonts that the windows ask for are there, or stand-ins of nearly the same widths: without
// them whatever comes instead would say nothing of what overlaps and what is cut off.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/window/screenshot.h"
#include "ui/win32/gdi_handles.h"

namespace Veldrift {
namespace {

// A font in a context of its own, with a bitmap to draw on.
class FontUnderTest {
 public:
  FontUnderTest(const wchar_t* face, int height, int weight)
      : font_(CreateFontW(height, 0, 0, 0, weight, FALSE, FALSE, FALSE, DEFAULT_CHARSET, 0, 0,
                          CLEARTYPE_QUALITY, 0, face)),
        bitmap_(CreateBitmap(kSide, kSide, 1, 32, nullptr)) {
    SelectObject(context_.get(), font_.get());
    SelectObject(context_.get(), bitmap_.get());
  }

  // The name that the font file bears, whatever it was asked for by.
  std::string FileName() const {
    std::vector<char> memory(GetOutlineTextMetricsW(context_.get(), 0, nullptr));
    if (memory.empty()) return "";
    auto* const metrics = reinterpret_cast<OUTLINETEXTMETRICW*>(memory.data());
    GetOutlineTextMetricsW(context_.get(), static_cast<UINT>(memory.size()), metrics);
    return NarrowText(reinterpret_cast<const wchar_t*>(
        memory.data() + reinterpret_cast<size_t>(metrics->otmpFullName)));
  }
  TEXTMETRICW Metrics() const {
    TEXTMETRICW metrics{};
    GetTextMetricsW(context_.get(), &metrics);
    return metrics;
  }
  bool Has(wchar_t character) const {
    WORD glyph = 0;
    GetGlyphIndicesW(context_.get(), &character, 1, &glyph, GGI_MARK_NONEXISTING_GLYPHS);
    return glyph != 0xFFFF;
  }
  // What is seen of it, be it this font's or another's that comes to its help.
  std::vector<COLORREF> Draw(wchar_t character) const {
    PatBlt(context_.get(), 0, 0, kSide, kSide, WHITENESS);
    TextOutW(context_.get(), 4, 4, &character, 1);
    std::vector<COLORREF> pixels;
    for (int i = 0; i < kSide * kSide; ++i) {
      pixels.push_back(GetPixel(context_.get(), i % kSide, i / kSide));
    }
    return pixels;
  }

 private:
  static constexpr int kSide = 40;
  UniqueFont font_;
  UniqueBitmap bitmap_;
  UniqueMemoryContext context_{CreateCompatibleDC(nullptr)};  // goes first: it holds the others
};

TEST(Fonts, EachThatTheWindowsAskForIsFoundOrStoodInFor) {
  const struct {
    const char* role;
    const wchar_t* face;
    int height;
    int weight;
    const char* file;
  } fonts[] = {
      {"pairing text", L"Segoe UI", -16, 400, "Open Sans"},
      {"pairing code", L"Consolas", -56, 700, "Hack Bold"},
      {"title", L"Segoe UI", -22, 600, "Open Sans Bold"},
      {"subtitle", L"Segoe UI", -13, 400, "Open Sans"},
      {"section", L"Segoe UI", -11, 600, "Open Sans Bold"},
      {"body", L"Segoe UI", -14, 400, "Open Sans"},
      {"body strong", L"Segoe UI", -14, 600, "Open Sans Bold"},
      {"small", L"Segoe UI", -12, 400, "Open Sans"},
      {"mono", L"Consolas", -12, 400, "Hack"},
      {"fine", L"Segoe UI", -11, 400, "Open Sans"},
      {"icon", L"Segoe Fluent Icons", -14, 400, "Veldrift Test Icons"},
  };
  for (const auto& font : fonts) {
    SCOPED_TRACE(font.role);
    const FontUnderTest found(font.face, font.height, font.weight);
    const TEXTMETRICW metrics = found.Metrics();
    std::cout << font.role << ": " << found.FileName() << ", line " << metrics.tmHeight
              << ", average width " << metrics.tmAveCharWidth << "\n";
    EXPECT_NE(found.FileName().find(font.file), std::string::npos) << found.FileName();
    EXPECT_NEAR(metrics.tmHeight - metrics.tmInternalLeading, -font.height, 1);
  }
}

TEST(Fonts, EveryIconHasAGlyphOfItsOwn) {
  const FontUnderTest icons(L"Segoe Fluent Icons", -14, 400);
  std::vector<std::vector<COLORREF>> seen = {icons.Draw(L'\xE000')};
  EXPECT_FALSE(icons.Has(L'\xE000')) << "what is missing must show";
  for (const wchar_t icon : std::wstring(L"\xE701\xE714\xE72E\xE740\xE74A\xE770\xE7B8\xE7BA\xE8AB"
                                         L"\xE8D6\xE8EA\xE916\xE91F\xE946\xE950\xE968\xE9D9\xEC27"
                                         L"\xEC48\xF0E4\xF5B0")) {
    EXPECT_TRUE(icons.Has(icon)) << std::hex << int{icon};
    const std::vector<COLORREF> drawn = icons.Draw(icon);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), drawn), 0) << std::hex << int{icon};
    seen.push_back(drawn);
  }
}

TEST(Fonts, WhatTheTextFontsLackComesFromAnother) {
  for (const wchar_t* face : {L"Segoe UI", L"Consolas"}) {
    const FontUnderTest font(face, -14, 400);
    const std::vector<COLORREF> missing = font.Draw(L'\xE123');
    for (const wchar_t sign : {L'▶', L'▼', L'→', L'↑', L'·', L'—'}) {
      EXPECT_NE(font.Draw(sign), missing) << std::hex << int{sign};
    }
  }
}

}  // namespace
}  // namespace Veldrift
