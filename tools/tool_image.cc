// PNG in and out, raw planes, false colour and plots for the tool's modes.
#include "tools/tool_image.h"

#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cmath>

#ifdef BIVISTA_TOOL_HAVE_PNG
#include <png.h>
#endif

namespace bvtool {

bool PictureSupported() {
#ifdef BIVISTA_TOOL_HAVE_PNG
  return true;
#else
  return false;
#endif
}

#ifdef BIVISTA_TOOL_HAVE_PNG
namespace {

struct File {
  FILE* f;
  explicit File(FILE* file) : f(file) {}
  ~File() {
    if (f != nullptr) fclose(f);
  }
};

}  // namespace

bool ReadPng(const std::string& path, PngImage* img, std::string* error) {
  File file(fopen(path.c_str(), "rb"));
  if (file.f == nullptr) {
    *error = "cannot open " + path + ": " + strerror(errno);
    return false;
  }
  uint8_t sig[8];
  if (fread(sig, 1, 8, file.f) != 8 || png_sig_cmp(sig, 0, 8) != 0) {
    *error = path + " is not a PNG file";
    return false;
  }
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  PngImage out;
  std::vector<png_bytep> rows;
  if (png == nullptr || info == nullptr || setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, &info, nullptr);
    *error = "libpng failed to read " + path;
    return false;
  }
  png_init_io(png, file.f);
  png_set_sig_bytes(png, 8);
  png_read_info(png, info);
  const int type = png_get_color_type(png, info);
  const int depth = png_get_bit_depth(png, info);
  const bool grey = (type & PNG_COLOR_MASK_COLOR) == 0;
  if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if (grey && depth < 8) png_set_expand_gray_1_2_4_to_8(png);
  if (type & PNG_COLOR_MASK_ALPHA) png_set_strip_alpha(png);
  if (png_get_valid(png, info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(png), png_set_strip_alpha(png);
  const bool keep16 = grey && depth == 16;
  if (depth == 16) {
    if (keep16) {
      png_set_swap(png);  // PNG is big-endian; samples go to native uint16_t
    } else {
      png_set_strip_16(png);
    }
  }
  png_read_update_info(png, info);
  out.width = static_cast<int>(png_get_image_width(png, info));
  out.height = static_cast<int>(png_get_image_height(png, info));
  out.channels = grey ? 1 : 3;
  out.bits = keep16 ? 16 : 8;
  const size_t rowBytes = png_get_rowbytes(png, info);
  const size_t pixels = static_cast<size_t>(out.width) * out.height;
  if (keep16) {
    out.px16.resize(pixels);
  } else {
    out.px8.resize(pixels * out.channels);
  }
  uint8_t* base = keep16 ? reinterpret_cast<uint8_t*>(out.px16.data()) : out.px8.data();
  if (rowBytes * out.height != (keep16 ? pixels * 2 : pixels * out.channels)) {
    png_destroy_read_struct(&png, &info, nullptr);
    *error = "unexpected PNG layout in " + path;
    return false;
  }
  rows.resize(out.height);
  for (int y = 0; y < out.height; ++y) rows[y] = base + rowBytes * y;
  png_read_image(png, rows.data());
  png_read_end(png, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  *img = std::move(out);
  return true;
}

bool WritePng(const std::string& path, int width, int height, int channels, const uint8_t* px,
              std::string* error) {
  FILE* f = fopen(path.c_str(), "wb");
  if (f == nullptr) {
    *error = "cannot write " + path + ": " + strerror(errno);
    return false;
  }
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (png == nullptr || info == nullptr || setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    fclose(f);
    *error = "libpng failed to write " + path;
    return false;
  }
  png_init_io(png, f);
  png_set_IHDR(png, info, width, height, 8, channels == 1 ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  const size_t rowBytes = static_cast<size_t>(width) * channels;
  for (int y = 0; y < height; ++y) png_write_row(png, px + rowBytes * y);
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  if (fclose(f) != 0) {
    *error = "cannot finish writing " + path;
    return false;
  }
  return true;
}
#else
bool ReadPng(const std::string&, PngImage*, std::string* error) {
  *error = "PNG input is not available: this build of the tool has no libpng";
  return false;
}
bool WritePng(const std::string&, int, int, int, const uint8_t*, std::string* error) {
  *error = "PNG output is not available: this build of the tool has no libpng";
  return false;
}
#endif

bool ReadRawFloat(const std::string& path, int width, int height, std::vector<float>* out,
                  std::string* error) {
  FILE* f = fopen(path.c_str(), "rb");
  if (f == nullptr) {
    *error = "cannot open " + path + ": " + strerror(errno);
    return false;
  }
  const size_t n = static_cast<size_t>(width) * height;
  std::vector<float> v(n);
  const size_t got = fread(v.data(), sizeof(float), n, f);
  fclose(f);
  if (got != n) {
    *error = path + " holds " + std::to_string(got) + " floats, " + std::to_string(n) +
             " needed for " + std::to_string(width) + "x" + std::to_string(height);
    return false;
  }
  *out = std::move(v);
  return true;
}

bool WriteRawFloat(const std::string& path, const std::vector<float>& v, std::string* error) {
  FILE* f = fopen(path.c_str(), "wb");
  const bool ok = f != nullptr && fwrite(v.data(), sizeof(float), v.size(), f) == v.size();
  const bool closed = f != nullptr && fclose(f) == 0;
  if (!ok || !closed) *error = "cannot write " + path;
  return ok && closed;
}

void FalseColour(double t, uint8_t* rgb) {
  t = std::min(std::max(t, 0.0), 1.0);
  const double r = std::min(std::max(1.5 - std::abs(4.0 * t - 3.0), 0.0), 1.0);
  const double g = std::min(std::max(1.5 - std::abs(4.0 * t - 2.0), 0.0), 1.0);
  const double b = std::min(std::max(1.5 - std::abs(4.0 * t - 1.0), 0.0), 1.0);
  rgb[0] = static_cast<uint8_t>(r * 255.0 + 0.5);
  rgb[1] = static_cast<uint8_t>(g * 255.0 + 0.5);
  rgb[2] = static_cast<uint8_t>(b * 255.0 + 0.5);
}

void RobustRange(const float* v, size_t n, float* lo, float* hi) {
  std::vector<float> s;
  const size_t step = std::max<size_t>(1, n / 200000);
  for (size_t i = 0; i < n; i += step) {
    if (std::isfinite(v[i]) && v[i] > 0) s.push_back(v[i]);
  }
  if (s.empty()) {
    *lo = 0;
    *hi = 1;
    return;
  }
  std::sort(s.begin(), s.end());
  *lo = s[s.size() / 100];
  *hi = s[s.size() - 1 - s.size() / 100];
  if (!(*hi > *lo)) *hi = *lo + 1;
}

std::vector<uint8_t> FalseColourPlane(const float* v, int width, int height, float lo, float hi) {
  const size_t n = static_cast<size_t>(width) * height;
  std::vector<uint8_t> rgb(n * 3, 0);
  for (size_t i = 0; i < n; ++i) {
    if (std::isfinite(v[i]) && v[i] > 0) FalseColour((v[i] - lo) / (hi - lo), &rgb[i * 3]);
  }
  return rgb;
}

void OverlayMask(std::vector<uint8_t>* rgb, const uint8_t* mask, int width, int height,
                 const uint8_t colour[3], float alpha) {
  const size_t n = static_cast<size_t>(width) * height;
  for (size_t i = 0; i < n; ++i) {
    if (mask[i] == 0) continue;
    for (int c = 0; c < 3; ++c) {
      uint8_t& p = (*rgb)[i * 3 + c];
      p = static_cast<uint8_t>(lrintf(p * (1.0f - alpha) + colour[c] * alpha));
    }
  }
}

std::vector<uint8_t> SideBySide(const std::vector<const std::vector<uint8_t>*>& pictures,
                                const std::vector<int>& widths, int height, int gap) {
  int total = 0;
  for (size_t k = 0; k < widths.size(); ++k) total += widths[k] + (k ? gap : 0);
  std::vector<uint8_t> out(static_cast<size_t>(total) * height * 3, 24);
  int x0 = 0;
  for (size_t k = 0; k < pictures.size(); ++k) {
    for (int y = 0; y < height; ++y) {
      memcpy(&out[(static_cast<size_t>(y) * total + x0) * 3],
             &(*pictures[k])[static_cast<size_t>(y) * widths[k] * 3],
             static_cast<size_t>(widths[k]) * 3);
    }
    x0 += widths[k] + gap;
  }
  return out;
}

Canvas::Canvas(int width, int height, uint8_t grey)
    : w_(width), h_(height), px_(static_cast<size_t>(width) * height * 3, grey) {}

void Canvas::Put(int x, int y, const uint8_t colour[3]) {
  if (x < 0 || y < 0 || x >= w_ || y >= h_) return;
  memcpy(&px_[(static_cast<size_t>(y) * w_ + x) * 3], colour, 3);
}

void Canvas::Line(int x0, int y0, int x1, int y1, const uint8_t colour[3]) {
  const int dx = std::abs(x1 - x0), dy = -std::abs(y1 - y0);
  const int sx = x0 < x1 ? 1 : -1, sy = y0 < y1 ? 1 : -1;
  int err = dx + dy;
  for (;;) {
    Put(x0, y0, colour);
    if (x0 == x1 && y0 == y1) break;
    const int e2 = 2 * err;
    if (e2 >= dy) err += dy, x0 += sx;
    if (e2 <= dx) err += dx, y0 += sy;
  }
}

void Canvas::Frame(int x, int y, int w, int h, const uint8_t colour[3]) {
  Line(x, y, x + w - 1, y, colour);
  Line(x, y + h - 1, x + w - 1, y + h - 1, colour);
  Line(x, y, x, y + h - 1, colour);
  Line(x + w - 1, y, x + w - 1, y + h - 1, colour);
}

void Canvas::Curve(int x, int y, int w, int h, const double* values, int n, double vmax,
                   const uint8_t colour[3]) {
  if (n < 1 || !(vmax > 0)) return;
  auto px = [&](int i) { return x + (n == 1 ? 0 : static_cast<int>(lround(i * (w - 1.0) / (n - 1)))); };
  auto py = [&](int i) {
    const double t = std::min(std::max(values[i] / vmax, 0.0), 1.0);
    return y + h - 1 - static_cast<int>(lround(t * (h - 1)));
  };
  for (int i = 1; i < n; ++i) Line(px(i - 1), py(i - 1), px(i), py(i), colour);
  if (n == 1) Put(px(0), py(0), colour);
}

void Canvas::Blit(const std::vector<uint8_t>& rgb, int width, int height, int x, int y) {
  for (int r = 0; r < height; ++r) {
    for (int c = 0; c < width; ++c) Put(x + c, y + r, &rgb[(static_cast<size_t>(r) * width + c) * 3]);
  }
}

bool Canvas::Save(const std::string& path, std::string* error) const {
  return WritePng(path, w_, h_, 3, px_.data(), error);
}

bool ParseInt(const char* text, long lo, long hi, int* out) {
  if (text == nullptr || *text == '\0') return false;
  char* end = nullptr;
  errno = 0;
  const long v = strtol(text, &end, 0);
  if (errno != 0 || *end != '\0' || v < lo || v > hi) return false;
  *out = static_cast<int>(v);
  return true;
}

bool ParseFloat(const char* text, double lo, double hi, double* out) {
  if (text == nullptr || *text == '\0') return false;
  char* end = nullptr;
  errno = 0;
  const double v = strtod(text, &end);
  if (errno != 0 || *end != '\0' || !(v >= lo && v <= hi)) return false;
  *out = v;
  return true;
}

bool ParseSize(const char* text, int* w, int* h) {
  if (text == nullptr) return false;
  const char* x = strchr(text, 'x');
  if (x == nullptr) return false;
  const std::string a(text, x - text);
  return ParseInt(a.c_str(), 1, 65535, w) && ParseInt(x + 1, 1, 65535, h);
}

Option Flag(const char* name, bool* target) { return Option{name, target, nullptr}; }
Option Value(const char* name, std::function<bool(const char*)> parse) {
  return Option{name, nullptr, std::move(parse)};
}
Option Text(const char* name, std::string* target) {
  return Value(name, [target](const char* v) { return *target = v, true; });
}
Option Int(const char* name, long lo, long hi, int* target) {
  return Value(name, [=](const char* v) { return ParseInt(v, lo, hi, target); });
}
Option Float(const char* name, double lo, double hi, double* target) {
  return Value(name, [=](const char* v) { return ParseFloat(v, lo, hi, target); });
}
Option Size(const char* name, int* w, int* h) {
  return Value(name, [=](const char* v) { return ParseSize(v, w, h); });
}

int Fail(const char* program, const std::string& message) {
  fprintf(stderr, "%s: %s\n", program, message.c_str());
  return 1;
}

int ParseOptions(int argc, char** argv, const char* program, const std::vector<Option>& options,
                 void (*help)(FILE*)) {
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--help" || a == "-h") {
      help(stdout);
      return 0;
    }
    const Option* o = nullptr;
    for (const Option& k : options) o = o == nullptr && a == k.name ? &k : o;
    if (o == nullptr) return Fail(program, "unknown option " + a + " (see --help)");
    if (o->flag != nullptr) {
      *o->flag = true;
      continue;
    }
    if (i + 1 >= argc) return Fail(program, "option " + a + " needs a value (see --help)");
    const char* v = argv[++i];
    if (!o->parse(v)) return Fail(program, "bad value '" + std::string(v) + "' for " + a + " (see --help)");
  }
  return -1;
}

}  // namespace bvtool
