// Internal logging helpers: every message starts with "[function.line] ".
#ifndef BIVISTA_SRC_COMMON_LOG_INTERNAL_H
#define BIVISTA_SRC_COMMON_LOG_INTERNAL_H

#include "bivista/xelma_log.h"

namespace bivista {

constexpr const char kTagAlgo[] = "ZR481_ALGO";
constexpr const char kTagMthd[] = "ZR481_MTHD";
constexpr const char kTagXelma[] = "Xelma_Algo";
constexpr const char kTagTime[] = "ZR481_TIME";
constexpr const char kTagFmat[] = "ZR481_FMAT";

}  // namespace bivista

// BV_LOG(level, tag, "funcName", kLineConstant, "text %d", args...)
// The function name and line are the first two arguments of every message.
#define BV_LOG(level, tag, func, line, fmt, ...) \
  Xelma_Print((level), (tag), "[%s.%-4d] " fmt, (func), (int)(line), ##__VA_ARGS__)

#define BV_LOGD(tag, func, line, fmt, ...) BV_LOG(XELMA_LOG_DEBUG, tag, func, line, fmt, ##__VA_ARGS__)
#define BV_LOGI(tag, func, line, fmt, ...) BV_LOG(XELMA_LOG_INFO, tag, func, line, fmt, ##__VA_ARGS__)
#define BV_LOGW(tag, func, line, fmt, ...) BV_LOG(XELMA_LOG_WARN, tag, func, line, fmt, ##__VA_ARGS__)
#define BV_LOGE(tag, func, line, fmt, ...) BV_LOG(XELMA_LOG_ERROR, tag, func, line, fmt, ##__VA_ARGS__)

#endif
