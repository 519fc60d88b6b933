// Raw dumps of the corrected planes, enabled by the "disptrans.saveEnable" property.
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>

#include "android_platform.h"
#include "bivista/mem_services.h"
#include "common/log_internal.h"
#include "depthcalc/depthcalc_internal.h"

namespace bivista {
namespace {

constexpr int kLineWriteRelative = 612;
constexpr int kLineWriteOpen = 618;
constexpr int kLineWriteShort = 625;
constexpr int kLineSaveNoPath = 646;
constexpr int kLineSaveDefault = 647;
constexpr int kLineSavePath = 650;
constexpr int kLineSaveMkdirFailed = 657;
constexpr int kLineSaveMkdirDone = 659;

constexpr size_t kNameSize = 256;
constexpr mode_t kDirMode = 0777;

// last - first + 1, formed in 64 bits and saturated: an inverted side far below zero must not
// wrap round to a large positive size.
int AreaSide(int first, int last) {
  const int64_t side = static_cast<int64_t>(last) - first + 1;
  return static_cast<int>(side < INT32_MIN ? INT32_MIN : side > INT32_MAX ? INT32_MAX : side);
}

// Whole plane, then the focus area, both appended.
void DumpPlane(const char* dir, const uint8_t* plane, int width, int height, int stride,
               const BIVISTA_Rect& r, int aw, int ah, const char* kind) {
  char name[kNameSize];
  memset(name, 0, sizeof name);
  snprintf(name, sizeof name, "%s%ld%ld_dis_%dx%d_%s.yuv", dir, 0L, 0L, width, height, kind);
  writeFile(name, plane, width, height, stride);
  memset(name, 0, sizeof name);
  snprintf(name, sizeof name, "%s%ld%ld_dis_l%d_t%d_r%d_b%d_%dx%d_%s_focus.yuv", dir, 0L, 0L,
           r.left, r.top, r.right, r.bottom, aw, ah, kind);
  // An empty area writes its rows empty: no pointer is formed at its (far-off) corner.
  const bool empty = aw <= 0 || ah <= 0;
  writeFile(name, empty ? plane : plane + r.left + static_cast<ptrdiff_t>(stride) * r.top, aw, ah,
            stride);
}

}  // namespace

}  // namespace bivista

using namespace bivista;

extern "C" int writeFile(const char* path, const uint8_t* data, int rowBytes, int rows,
                         int stride) {
  if (IsRelativePath(path) != 0) {
    return BV_LOGW(kTagAlgo, "writeFile", kLineWriteRelative,
                   "your input filenmae contains relative signs!file: %s", path);
  }
  FILE* f = fopen(path, "a+");
  if (f == nullptr) {
    return BV_LOGE(kTagAlgo, "writeFile", kLineWriteOpen, "Debug open file Error:%s!", path);
  }
  // An inverted area has a negative width: its rows are written as empty (short) rows.
  const size_t bytes = rowBytes > 0 ? static_cast<size_t>(rowBytes) : 0;
  for (int i = 0; i < rows; ++i) {
    // An empty row writes nothing and reports the short write fwrite would; no row pointer is
    // formed (the data may be null).
    if (bytes == 0 || fwrite(data + static_cast<ptrdiff_t>(i) * stride, bytes, 1, f) != 1) {
      BV_LOGW(kTagAlgo, "writeFile", kLineWriteShort, "write end");
    }
  }
  return fclose(f);
}

namespace bivista {

void PaintDumpFrame(uint8_t* plane, int stride, const BIVISTA_Rect& r) {
  const int aw = AreaSide(r.left, r.right);
  const int ah = AreaSide(r.top, r.bottom);
  if (aw <= 0) return;
  for (int i = 0; i < ah; ++i) {
    uint8_t* row = plane + r.left + static_cast<ptrdiff_t>(stride) * (r.top + i);
    // The bottom edge is tested against the width: tall areas end in solid rows, wide areas
    // get no bottom edge. The host's tooling expects exactly this picture.
    if (i < 2 || i > aw - 3) {
      memset(row, 255, aw);
      continue;
    }
    for (int j = 0; j < aw && j < 2; ++j) row[j] = 255;
    for (int j = aw - 2 > 2 ? aw - 2 : 2; j < aw; ++j) row[j] = 255;
  }
}

}  // namespace bivista

extern "C" void SaveDispTransImage(uint8_t* disparity, const uint8_t* confidence, int width,
                                   int height, int stride, BIVISTA_Rect rect) {
  char root[kNameSize];
  memset(root, 0, sizeof root);
  if (__system_property_get("imagepath", root) <= 0 || root[0] == '\0') {
    BV_LOGI(kTagAlgo, "SaveDispTransImage", kLineSaveNoPath, "can't find the property(imagepath)\n");
    BV_LOGI(kTagAlgo, "SaveDispTransImage", kLineSaveDefault, "use default imagepath:/data/\n");
    snprintf(root, sizeof root, "%s", "/data");
  } else {
    BV_LOGI(kTagAlgo, "SaveDispTransImage", kLineSavePath, "imagepath is:%s/disptrans\n", root);
  }
  char dir[kNameSize];
  memset(dir, 0, sizeof dir);
  if (snprintf(dir, sizeof dir, "%s/disptrans/%ld%ld/", root, 0L, 0L) >= static_cast<int>(sizeof dir)) {
    dir[sizeof dir - 1] = '\0';  // truncated to the buffer, as every name is
  }
  if (mkdir(dir, kDirMode) != 0) {
    BV_LOGI(kTagAlgo, "SaveDispTransImage", kLineSaveMkdirFailed, "create path(%s) failed.\n", dir);
  } else {
    BV_LOGI(kTagAlgo, "SaveDispTransImage", kLineSaveMkdirDone, "create path(%s) sucessed.\n", dir);
  }
  const int aw = AreaSide(rect.left, rect.right);
  const int ah = AreaSide(rect.top, rect.bottom);
  // A 16-bit map arrives as a null plane: nothing to paint.
  if (disparity != nullptr) {
    PaintDumpFrame(disparity, stride, rect);
    DumpPlane(dir, disparity, width, height, stride, rect, aw, ah, "disp");
  }
  if (confidence != nullptr) DumpPlane(dir, confidence, width, height, stride, rect, aw, ah, "conf");
}
