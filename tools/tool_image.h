// Pictures for the tool's modes: PNG in and out, raw float planes, false colour, overlays and
// simple plots. Everything works on packed rows (stride = width x channels).
#ifndef BIVISTA_TOOLS_TOOL_IMAGE_H
#define BIVISTA_TOOLS_TOOL_IMAGE_H

#include <stdint.h>
#include <stdio.h>

#include <functional>
#include <string>
#include <vector>

namespace bvtool {

// A decoded PNG: 1 (grey) or 3 (RGB) channels; 16-bit grey keeps its samples in px16.
struct PngImage {
  int width = 0, height = 0, channels = 0, bits = 0;
  std::vector<uint8_t> px8;    // bits == 8: width x height x channels
  std::vector<uint16_t> px16;  // bits == 16: width x height (grey only)
};

// Reads any PNG as 8-bit grey, 16-bit grey or 8-bit RGB (palette expanded, alpha dropped,
// 16-bit colour reduced to 8). False with a one-line reason in *error.
bool ReadPng(const std::string& path, PngImage* img, std::string* error);
// channels 1 or 3, 8-bit rows of width x channels bytes.
bool WritePng(const std::string& path, int width, int height, int channels, const uint8_t* px,
              std::string* error);
// Whether this build has libpng (the cross build may not).
bool PictureSupported();

// Raw native-endian float plane of exactly width x height values.
bool ReadRawFloat(const std::string& path, int width, int height, std::vector<float>* out,
                  std::string* error);
bool WriteRawFloat(const std::string& path, const std::vector<float>& v, std::string* error);

// Blue (t = 0) through green to red (t = 1).
void FalseColour(double t, uint8_t* rgb);
// 1st and 99th percentile of the finite values above zero (the invalid ones are left out).
void RobustRange(const float* v, size_t n, float* lo, float* hi);
// RGB picture of a plane; values that are not finite or not above zero are drawn black.
std::vector<uint8_t> FalseColourPlane(const float* v, int width, int height, float lo, float hi);

// Blends colour into the RGB pixels where mask is nonzero (alpha 0..1).
void OverlayMask(std::vector<uint8_t>* rgb, const uint8_t* mask, int width, int height,
                 const uint8_t colour[3], float alpha);
// Side by side, with a dark gap; every picture must have the same height.
std::vector<uint8_t> SideBySide(const std::vector<const std::vector<uint8_t>*>& pictures,
                                const std::vector<int>& widths, int height, int gap);

// An RGB canvas for plots.
class Canvas {
 public:
  Canvas(int width, int height, uint8_t grey);
  int width() const { return w_; }
  int height() const { return h_; }
  const std::vector<uint8_t>& rgb() const { return px_; }
  void Put(int x, int y, const uint8_t colour[3]);
  void Line(int x0, int y0, int x1, int y1, const uint8_t colour[3]);
  void Frame(int x, int y, int w, int h, const uint8_t colour[3]);
  // Curve of n values in the box (x, y, w, h): value 0 on the bottom edge, vmax on the top.
  void Curve(int x, int y, int w, int h, const double* values, int n, double vmax,
             const uint8_t colour[3]);
  // Copies an RGB picture with its top-left corner at (x, y), clipped to the canvas.
  void Blit(const std::vector<uint8_t>& rgb, int width, int height, int x, int y);
  bool Save(const std::string& path, std::string* error) const;

 private:
  int w_, h_;
  std::vector<uint8_t> px_;
};

// ---- argument parsing shared by the modes ----
bool ParseInt(const char* text, long lo, long hi, int* out);
bool ParseFloat(const char* text, double lo, double hi, double* out);
bool ParseSize(const char* text, int* w, int* h);  // "WxH", 1..65535 each

// One option of a mode: a flag (no value), or a valued option whose parser says whether the
// value is good.
struct Option {
  const char* name;
  bool* flag;
  std::function<bool(const char*)> parse;
};
Option Flag(const char* name, bool* target);
Option Value(const char* name, std::function<bool(const char*)> parse);
Option Text(const char* name, std::string* target);
Option Int(const char* name, long lo, long hi, int* target);
Option Float(const char* name, double lo, double hi, double* target);
Option Size(const char* name, int* w, int* h);

// Prints "<program>: <message>" on stderr; returns the tool's failure code, 1.
int Fail(const char* program, const std::string& message);

// Parses argv[1 ..] against the options: "-h" or "--help" prints the help and gives 0; an unknown
// option, a missing value or a bad value fails with one message and gives 1; -1 when all parsed.
int ParseOptions(int argc, char** argv, const char* program, const std::vector<Option>& options,
                 void (*help)(FILE*));

}  // namespace bvtool

#endif
