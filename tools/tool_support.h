// Pieces of the command-line tool: input files, calibration XML, log sink, pictures.
#ifndef BIVISTA_TOOLS_TOOL_SUPPORT_H
#define BIVISTA_TOOLS_TOOL_SUPPORT_H

#include <stdint.h>

#include <string>
#include <vector>

#include "bivista/depthcalc.h"

namespace bvtool {

// ---- input planes ----
// Reads frame `frame` of a raw plane file holding frames of rows x stride samples of
// bytesPerSample bytes. On failure returns false with a one-line reason in *error.
bool ReadPlane(const std::string& path, int stride, int rows, int bytesPerSample, int frame,
               std::vector<uint8_t>* out, std::string* error);

// ---- calibration ----
// Reads the calibration XML (format in docs/tool.md and tools/sample_calibration.xml).
bool LoadCalibration(const std::string& path, BIVISTA_CalibParam* calib, std::string* error);

// ---- log sink: the library's messages pass through the tool ----
enum class LogMode { kQuiet, kWarnings, kAll };
void SetLogMode(LogMode mode);
// Properties served to the library for this run; empty value = not set here.
void SetRunProperty(const std::string& name, const std::string& value);

// ---- result codes ----
const char* ResultMeaning(int code);

// ---- picture ----
// Disparity (false colour) beside the confidence, focus rectangle drawn on both.
bool WritePicture(const std::string& path, const DisparityType& rec, const uint8_t* confidence,
                  const BIVISTA_Rect& mapRect, std::string* error);

}  // namespace bvtool

#endif
