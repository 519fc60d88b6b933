// File load and save around the bundled XML document classes, reporting through the logger.
#include "bivista/xml_helper.h"

#include <stdio.h>

#include "common/log_internal.h"
#include "xml/xml_internal.h"

using bivista::kLineXmlLoad;
using bivista::kLineXmlSave;

namespace {
// XMLVisitor's members are all inline, so its vtable is emitted only where the optimiser keeps a
// use of it; this anchor keeps the exported set the same at every optimisation level.
__attribute__((used)) const tinyxml2::XMLVisitor kVisitorVtableAnchor;
}  // namespace

extern "C" {

int Bivista_XmlLoadFile(tinyxml2::XMLDocument* doc, const char* path) {
  int ecode = tinyxml2::XML_ERROR_FILE_COULD_NOT_BE_OPENED;
  // tinyxml2 asserts on a null file name in debug builds; refuse it here instead.
  if (doc != nullptr && path != nullptr) ecode = doc->LoadFile(path);
  if (ecode != tinyxml2::XML_SUCCESS) {
    BV_LOGE(bivista::kTagAlgo, "Bivista_XmlLoadFile", kLineXmlLoad, "xml loadFile ecode %d", ecode);
  }
  return ecode;
}

int Bivista_XmlSaveFile(tinyxml2::XMLDocument* doc, const char* path) {
  int ecode = tinyxml2::XML_ERROR_FILE_COULD_NOT_BE_OPENED;
  if (doc != nullptr && path != nullptr) {
    // Opened here rather than by tinyxml2 so that a write that fails (a full disk) is noticed.
    FILE* fp = fopen(path, "w");
    if (fp != nullptr) {
      ecode = doc->SaveFile(fp, false);
      const bool writeFailed = ferror(fp) != 0;
      if ((fclose(fp) != 0 || writeFailed) && ecode == tinyxml2::XML_SUCCESS) {
        ecode = tinyxml2::XML_ERROR_FILE_COULD_NOT_BE_OPENED;
      }
    }
  }
  if (ecode != tinyxml2::XML_SUCCESS) {
    BV_LOGE(bivista::kTagAlgo, "Bivista_XmlSaveFile", kLineXmlSave, "xml saveFIle ecode =%d", ecode);
  }
  return ecode;
}

}  // extern "C"
