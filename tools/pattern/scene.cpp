#include "tools/pattern/scene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <numbers>

namespace Veldrift {

namespace {

constexpr int kPeriod = 256;  // the texture repeats after so many pixels, both ways
constexpr int kTileRows = kPeriod;
constexpr int kBodies = 5;

uint32_t Hash(uint32_t x, uint32_t y) {
  uint32_t h = x * 0x9E3779B1U ^ y * 0x85EBCA77U;
  h = (h ^ h >> 15) * 0x2C1B3C6DU;
  return h ^ h >> 13;
}

// Smooth noise between 0 and 1 over lattice cells of `cell` pixels, a divisor of kPeriod.
double Noise(int x, int y, int cell) {
  const int cells = kPeriod / cell;
  const auto corner = [&](int cx, int cy) {
    return double(Hash(uint32_t(cx % cells), uint32_t(cy % cells + cell * 64)) & 0xFFFF) / 65535.0;
  };
  const auto ease = [](double t) { return t * t * (3 - 2 * t); };
  const double tx = ease(double(x % cell) / cell);
  const double ty = ease(double(y % cell) / cell);
  const double upper = std::lerp(corner(x / cell, y / cell), corner(x / cell + 1, y / cell), tx);
  const double lower =
      std::lerp(corner(x / cell, y / cell + 1), corner(x / cell + 1, y / cell + 1), tx);
  return std::lerp(upper, lower, ty);
}

uint32_t Opaque(double red, double green, double blue) {
  const auto level = [](double value) { return uint32_t(std::clamp(value, 0.0, 255.0)); };
  return level(blue) | level(green) << 8 | level(red) << 16 | 0xFF000000U;
}

// Coarse hills of colour with fine grain on them.
uint32_t GroundColour(int x, int y) {
  const double hills = Noise(x, y, 64);
  const double stones = Noise(x, y, 16);
  const double grain = Noise(x, y, 4);
  const double light = 50 + 90 * hills + 45 * stones + 25 * grain;
  return Opaque(light * (0.55 + 0.35 * hills), light * 0.85, light * (1.05 - 0.4 * hills));
}

struct Body {
  uint32_t colour;
  double speedX, speedY, phase;
};
constexpr std::array<Body, kBodies> kBodyTable = {{
    {0xFFE8463CU, 1.0, 1.3, 0.0},
    {0xFF3CB4E8U, 1.4, 0.9, 1.1},
    {0xFFF2C230U, 0.7, 1.6, 2.3},
    {0xFF5BC04AU, 1.9, 0.6, 3.7},
    {0xFFF4F4F4U, 1.2, 1.1, 5.2},
}};

void FillDisc(uint8_t* bgra, int width, int height, int strideBytes, int centreX, int centreY,
              int radius, uint32_t colour) {
  for (int y = std::max(0, centreY - radius); y < std::min(height, centreY + radius); ++y) {
    const int dy = y - centreY;
    const int half = int(std::sqrt(double(radius * radius - dy * dy)));
    const int from = std::max(0, centreX - half);
    const int to = std::min(width, centreX + half);
    auto* row = reinterpret_cast<uint32_t*>(bgra + std::ptrdiff_t(y) * strideBytes);
    if (from < to) std::fill(row + from, row + to, colour);
  }
}

// Bodies swing about the middle of the part that the stamp leaves free.
void PaintBodies(uint8_t* bgra, int width, int height, int strideBytes, uint32_t frameNumber) {
  const int radius = std::max(2, std::min(width, height) / 14);
  const double swing = frameNumber * (2 * std::numbers::pi / 240);
  for (const Body& body : kBodyTable) {
    const double x = width * (0.5 + 0.42 * std::sin(swing * body.speedX + body.phase));
    const double y = height * (0.4 + 0.32 * std::cos(swing * body.speedY + body.phase));
    FillDisc(bgra, width, height, strideBytes, int(x), int(y), radius, body.colour);
  }
}

}  // namespace

void Scene::MakeTile(int width) {
  tileWidth_ = width + kPeriod;
  tile_.resize(size_t(tileWidth_) * kTileRows);
  for (int y = 0; y < kTileRows; ++y) {
    uint32_t* row = tile_.data() + size_t(y) * size_t(tileWidth_);
    for (int x = 0; x < kPeriod; ++x) row[x] = GroundColour(x, y);
    for (int x = kPeriod; x < tileWidth_; ++x) row[x] = row[x - kPeriod];
  }
}

void Scene::PaintGround(uint8_t* bgra, int width, int height, int strideBytes,
                        uint32_t frameNumber) {
  const size_t offsetX = frameNumber * 3 % kPeriod;
  const size_t offsetY = frameNumber % kPeriod;
  for (int y = 0; y < height; ++y) {
    const size_t tileRow = (size_t(y) + offsetY) % kTileRows;
    std::memcpy(bgra + std::ptrdiff_t(y) * strideBytes,
                tile_.data() + tileRow * size_t(tileWidth_) + offsetX, size_t(width) * 4);
  }
}

void Scene::Paint(uint8_t* bgra, int width, int height, int strideBytes, uint32_t frameNumber) {
  if (tileWidth_ != width + kPeriod) MakeTile(width);
  PaintGround(bgra, width, height, strideBytes, frameNumber);
  PaintBodies(bgra, width, height, strideBytes, frameNumber);
}

}  // namespace Veldrift
