// Violation texts, codes and the single log line each violation produces.
#include "boundscheck/boundscheck_internal.h"
#include "common/log_internal.h"

namespace bivista {
namespace bc {

const char* ViolationText(Violation v) {
  switch (v) {
    case Violation::kNullDest: return "dest is null";
    case Violation::kNullSrc: return "src is null";
    case Violation::kNullFormat: return "format is null";
    case Violation::kNullDelim: return "delim is null";
    case Violation::kNullStrmax: return "strmax is null";
    case Violation::kNullPtr: return "ptr is null";
    case Violation::kNullStringArg: return "null %s argument";
    case Violation::kNullTarget: return "null receiving argument";
    case Violation::kAboveRsizeMax: return "size above RSIZE_MAX";
    case Violation::kZeroSize: return "destination size is zero";
    case Violation::kNoSpace: return "destination too small";
    case Violation::kUnterminated: return "dest not terminated within its size";
    case Violation::kOverlap: return "source and destination overlap";
    case Violation::kPercentN: return "%n in format";
    case Violation::kBadConversion: return "unsupported conversion in format";
    case Violation::kTokenPastEnd: return "token ends beyond strmax";
    case Violation::kEncoding: return "encoding error";
  }
  return "unknown";
}

errno_t ViolationCode(Violation v) {
  switch (v) {
    case Violation::kAboveRsizeMax:
    case Violation::kNoSpace:
    case Violation::kTokenPastEnd:
      return ERANGE;
    case Violation::kEncoding:
      return EILSEQ;
    default:
      return EINVAL;
  }
}

errno_t Report(const char* func, int line, Violation v) {
  BV_LOGE(kTagAlgo, func, line, "constraint violated: %s", ViolationText(v));
  return ViolationCode(v);
}

}  // namespace bc
}  // namespace bivista
