// Raw planes, calibration XML, result codes.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <sstream>

#include "bivista/xml_helper.h"
#include "tools/tool_support.h"

namespace bvtool {
namespace {

std::string Errno() { return strerror(errno); }

// The one place the calibration document is read from disk: through the library, so a failure
// is also in the log.
int LoadDocument(tinyxml2::XMLDocument* doc, const std::string& path) {
  return Bivista_XmlLoadFile(doc, path.c_str());
}

// Whitespace-separated numbers of an attribute; exactly `count` of them.
bool ParseNumbers(const tinyxml2::XMLElement* e, const char* attribute, int count, double* out,
                  std::string* error) {
  const char* text = e->Attribute(attribute);
  if (text == nullptr) {
    *error = std::string("<") + e->Name() + "> has no '" + attribute + "' attribute";
    return false;
  }
  const char* p = text;
  for (int i = 0; i < count; ++i) {
    char* end = nullptr;
    errno = 0;
    const double v = strtod(p, &end);
    if (end == p || errno != 0) {
      *error = std::string("<") + e->Name() + " " + attribute + "> needs " +
               std::to_string(count) + " numbers, got \"" + text + "\"";
      return false;
    }
    out[i] = v;
    p = end;
  }
  while (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r' || *p == ',') ++p;
  if (*p != '\0') {
    *error = std::string("<") + e->Name() + " " + attribute + "> has more than " +
             std::to_string(count) + " numbers";
    return false;
  }
  return true;
}

const tinyxml2::XMLElement* Child(const tinyxml2::XMLElement* root, const char* name,
                                  std::string* error) {
  const tinyxml2::XMLElement* e = root->FirstChildElement(name);
  if (e == nullptr) *error = std::string("missing <") + name + "> element";
  return e;
}

bool IntAttribute(const tinyxml2::XMLElement* e, const char* name, int* out, std::string* error) {
  if (e->QueryIntAttribute(name, out) != tinyxml2::XML_SUCCESS) {
    *error = std::string("<") + e->Name() + "> needs an integer '" + name + "' attribute";
    return false;
  }
  return true;
}

}  // namespace

bool ReadPlane(const std::string& path, int stride, int rows, int bytesPerSample, int frame,
               std::vector<uint8_t>* out, std::string* error) {
  FILE* f = fopen(path.c_str(), "rb");
  if (f == nullptr) {
    *error = "cannot open " + path + ": " + Errno();
    return false;
  }
  struct stat st;
  if (fstat(fileno(f), &st) != 0 || !S_ISREG(st.st_mode)) {
    fclose(f);
    *error = path + " is not a regular file";
    return false;
  }
  const long long frameBytes = static_cast<long long>(stride) * rows * bytesPerSample;
  const long long size = st.st_size;
  if (size < frameBytes * (frame + 1)) {
    fclose(f);
    std::ostringstream s;
    s << path << " is too short: " << size << " bytes, a " << stride << "x" << rows << " plane of "
      << bytesPerSample * 8 << "-bit samples needs " << frameBytes << " bytes";
    if (frame > 0) s << " per frame (frame " << frame << " asked)";
    *error = s.str();
    return false;
  }
  if (size % frameBytes != 0) {
    fclose(f);
    std::ostringstream s;
    s << path << " holds " << size << " bytes, not a whole number of " << stride << "x" << rows
      << " " << bytesPerSample * 8 << "-bit planes (" << frameBytes
      << " bytes each): check --size, --stride and --bits";
    *error = s.str();
    return false;
  }
  out->resize(static_cast<size_t>(frameBytes));
  const bool ok = fseek(f, static_cast<long>(frameBytes * frame), SEEK_SET) == 0 &&
                  fread(out->data(), 1, out->size(), f) == out->size();
  fclose(f);
  if (!ok) *error = "cannot read " + path + ": " + Errno();
  return ok;
}

bool LoadCalibration(const std::string& path, BIVISTA_CalibParam* calib, std::string* error) {
  tinyxml2::XMLDocument doc;
  const int code = LoadDocument(&doc, path);
  if (code != tinyxml2::XML_SUCCESS) {
    *error = "cannot read calibration " + path + ": " +
             (doc.ErrorStr() ? doc.ErrorStr() : tinyxml2::XMLDocument::ErrorIDToName(
                                                    static_cast<tinyxml2::XMLError>(code)));
    return false;
  }
  std::string why;
  const tinyxml2::XMLElement* root = doc.FirstChildElement("calibration");
  BIVISTA_CalibParam c;
  memset(&c, 0, sizeof c);
  double warp[9];
  const tinyxml2::XMLElement *cam1 = nullptr, *cam2 = nullptr, *tr = nullptr, *wm = nullptr;
  const tinyxml2::XMLElement* rect = nullptr;
  bool ok = root != nullptr;
  if (!ok) why = "the root element must be <calibration>";
  ok = ok && (cam1 = Child(root, "camera1", &why)) && ParseNumbers(cam1, "values", 9, c.camera1.value, &why);
  ok = ok && (cam2 = Child(root, "camera2", &why)) && ParseNumbers(cam2, "values", 9, c.camera2.value, &why);
  if (ok) {
    if (const tinyxml2::XMLElement* r = root->FirstChildElement("reserved")) {
      ok = ParseNumbers(r, "values", 4, c.reserved, &why);
    }
  }
  ok = ok && (tr = Child(root, "translation", &why)) && ParseNumbers(tr, "values", 3, c.translation, &why);
  ok = ok && (wm = Child(root, "warp", &why)) && ParseNumbers(wm, "values", 9, warp, &why) &&
       IntAttribute(wm, "form", &c.warpMatrixForm, &why);
  ok = ok && (rect = Child(root, "rectified", &why)) &&
       IntAttribute(rect, "width", &c.rectifiedWidth, &why) &&
       IntAttribute(rect, "height", &c.rectifiedHeight, &why);
  if (!ok) {
    *error = "calibration " + path + ": " + why;
    return false;
  }
  for (int i = 0; i < 9; ++i) c.warpMatrix[i] = static_cast<float>(warp[i]);
  *calib = c;
  return true;
}

const char* ResultMeaning(int code) {
  switch (code) {
    case BIVISTA_OK: return "success";
    case BIVISTA_ERR_NULL_POINTER: return "a required pointer is null";
    case BIVISTA_ERR_UNSUPPORTED: return "a size or the focus area is not supported";
    case BIVISTA_ERR_CREATE_SCENE: return "unsupported scene or image size";
    case BIVISTA_ERR_FAILED: return "a scratch allocation failed, or the shift step failed";
    default: return "unknown result code";
  }
}

}  // namespace bvtool
