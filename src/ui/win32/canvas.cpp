#include "ui/win32/canvas.h"

// gdiplus.h uses these without a namespace.
#include <algorithm>
using std::max;
using std::min;
#include <objidl.h>
// Needs both before it.
#include <gdiplus.h>

#include <memory>

namespace Veldrift {
namespace {

namespace Flat = Gdiplus::DllExports;

template <typename Object, Gdiplus::GpStatus(WINGDIPAPI* Delete)(Object*)>
struct Deleter {
  void operator()(Object* object) const { Delete(object); }
};

struct DeleteBrush {
  void operator()(Gdiplus::GpSolidFill* brush) const { Flat::GdipDeleteBrush(brush); }
};
using SolidBrush = std::unique_ptr<Gdiplus::GpSolidFill, DeleteBrush>;
using Path = std::unique_ptr<Gdiplus::GpPath, Deleter<Gdiplus::GpPath, Flat::GdipDeletePath>>;
using Pen = std::unique_ptr<Gdiplus::GpPen, Deleter<Gdiplus::GpPen, Flat::GdipDeletePen>>;

Gdiplus::GpGraphics* Graphics(void* graphics) {
  return static_cast<Gdiplus::GpGraphics*>(graphics);
}

Gdiplus::ARGB Opaque(Rgb colour) {
  return 0xFF000000U | Gdiplus::ARGB(colour.red) << 16 | Gdiplus::ARGB(colour.green) << 8 |
         colour.blue;
}

SolidBrush MakeBrush(Rgb colour) {
  Gdiplus::GpSolidFill* brush = nullptr;
  Flat::GdipCreateSolidFill(Opaque(colour), &brush);
  return SolidBrush(brush);
}

struct Shape {
  float left, top, width, height;
};

Path RoundedPath(const Shape& shape, int radius) {
  Gdiplus::GpPath* made = nullptr;
  Flat::GdipCreatePath(Gdiplus::FillModeAlternate, &made);
  Path path(made);
  if (!path) return path;
  if (radius <= 0) {
    Flat::GdipAddPathRectangle(made, shape.left, shape.top, shape.width, shape.height);
    return path;
  }
  const auto box = float(2 * radius);
  const float right = shape.left + shape.width - box, bottom = shape.top + shape.height - box;
  Flat::GdipAddPathArc(made, shape.left, shape.top, box, box, 180, 90);
  Flat::GdipAddPathArc(made, right, shape.top, box, box, 270, 90);
  Flat::GdipAddPathArc(made, right, bottom, box, box, 0, 90);
  Flat::GdipAddPathArc(made, shape.left, bottom, box, box, 90, 90);
  Flat::GdipClosePathFigure(made);
  return path;
}

void Fill(Gdiplus::GpGraphics* graphics, const Path& path, Rgb colour) {
  const SolidBrush brush = MakeBrush(colour);
  if (graphics != nullptr && path && brush) {
    Flat::GdipFillPath(graphics, brush.get(), path.get());
  }
}

void Stroke(Gdiplus::GpGraphics* graphics, const Path& path, Rgb colour) {
  Gdiplus::GpPen* made = nullptr;
  Flat::GdipCreatePen1(Opaque(colour), 1, Gdiplus::UnitPixel, &made);
  const Pen pen(made);
  if (graphics != nullptr && path && pen) Flat::GdipDrawPath(graphics, pen.get(), path.get());
}

}  // namespace

GdiPlusSession::GdiPlusSession() {
  const Gdiplus::GdiplusStartupInput input;
  if (Gdiplus::GdiplusStartup(&token_, &input, nullptr) != Gdiplus::Ok) token_ = 0;
}

GdiPlusSession::~GdiPlusSession() {
  if (token_ != 0) Gdiplus::GdiplusShutdown(token_);
}

Canvas::Canvas(HDC context) {
  Gdiplus::GpGraphics* made = nullptr;
  if (Flat::GdipCreateFromHDC(context, &made) != Gdiplus::Ok) return;
  graphics_ = made;
  Flat::GdipSetSmoothingMode(made, Gdiplus::SmoothingModeAntiAlias);
  Flat::GdipSetPixelOffsetMode(made, Gdiplus::PixelOffsetModeHalf);
}

Canvas::~Canvas() {
  if (graphics_ != nullptr) Flat::GdipDeleteGraphics(Graphics(graphics_));
}

void Canvas::FillRounded(const Place& place, int radius, Rgb fill) {
  const Shape shape{float(place.left), float(place.top), float(place.width), float(place.height)};
  Fill(Graphics(graphics_), RoundedPath(shape, radius), fill);
}

void Canvas::FillRoundedInset(const Place& place, int radius, Rgb fill, std::optional<Rgb> border) {
  const Shape shape{float(place.left) + 0.5F, float(place.top) + 0.5F, float(place.width - 1),
                    float(place.height - 1)};
  const Path path = RoundedPath(shape, radius);
  Fill(Graphics(graphics_), path, fill);
  if (border) Stroke(Graphics(graphics_), path, *border);
}

void Canvas::FillCircle(const Place& box, Rgb fill) {
  const SolidBrush brush = MakeBrush(fill);
  if (graphics_ == nullptr || !brush) return;
  Flat::GdipFillEllipse(Graphics(graphics_), brush.get(), float(box.left), float(box.top),
                        float(box.width), float(box.height));
}

RECT RectOf(const Place& place) {
  return {place.left, place.top, place.left + place.width, place.top + place.height};
}

COLORREF ColourOf(Rgb colour) { return colour.Bgr(); }

}  // namespace Veldrift
