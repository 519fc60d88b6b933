// Bounds-checked routines against plain models: copies and clears (overlaps included), the string
// routines, strtok_s, and the printf and scanf families on formats drawn from a grammar whose
// arguments are always valid (a stray %s would be the caller's fault, not ours). Buffers are
// sized exactly, so a write or read past them faults.
#include <stdio.h>

#include <string>

#include "bivista/boundscheck.h"
#include "support.h"

namespace {

constexpr char kFill = '\x7e';

void FuzzMem(FuzzedDataProvider& p) {
  const size_t n = static_cast<size_t>(bvfuzz::Dim(p, 1, 96));
  std::vector<uint8_t> buf = bvfuzz::Buffer<uint8_t>(p, n);
  const size_t d = p.ConsumeIntegralInRange<size_t>(0, n - 1);
  const size_t s = p.ConsumeIntegralInRange<size_t>(0, n - 1);
  const size_t destsz = p.ConsumeBool() ? p.ConsumeIntegral<size_t>()
                                        : p.ConsumeIntegralInRange<size_t>(0, n - d);
  const size_t count = p.ConsumeBool() ? p.ConsumeIntegral<size_t>()
                                       : p.ConsumeIntegralInRange<size_t>(0, n - s);
  // Calls whose destsz claims more than the buffer holds are the caller's fault; keep the
  // claims true unless they are refused before anything is written.
  if (destsz <= RSIZE_MAX && destsz > n - d) return;
  const int op = p.ConsumeIntegralInRange<int>(0, 2);
  std::vector<uint8_t> want = buf;
  errno_t e;
  if (op == 2) {
    const int ch = p.ConsumeIntegral<int>();
    e = memset_s(buf.data() + d, destsz, ch, count);
    const bool ok = destsz <= RSIZE_MAX && count <= destsz;
    if (destsz <= RSIZE_MAX) memset(want.data() + d, ch, ok ? count : destsz);
    bvfuzz::Check((e == 0) == ok, "memset_s verdict");
  } else {
    const bool overlap = d < s + count && s < d + count && count > 0;
    const bool ok = destsz <= RSIZE_MAX && count <= destsz && (op == 1 || !overlap);
    if (count > n - s && ok) return;  // a source claim past the buffer: the caller's fault
    e = op == 0 ? memcpy_s(buf.data() + d, destsz, buf.data() + s, count)
                : memmove_s(buf.data() + d, destsz, buf.data() + s, count);
    if (ok) {
      memmove(want.data() + d, want.data() + s, count);
    } else if (destsz <= RSIZE_MAX) {
      memset(want.data() + d, 0, destsz);
    }
    bvfuzz::Check((e == 0) == ok, "memcpy_s/memmove_s verdict");
  }
  bvfuzz::Check(buf == want, "memory routine wrote other bytes than its model");
}

void FuzzStrings(FuzzedDataProvider& p) {
  const size_t destsz = static_cast<size_t>(bvfuzz::Dim(p, 1, 48));
  std::string init = p.ConsumeRandomLengthString(destsz);
  std::vector<char> dest(destsz, kFill);
  memcpy(dest.data(), init.data(), init.size());
  const std::string src = p.ConsumeRandomLengthString(64);
  const size_t count = p.ConsumeBool() ? p.ConsumeIntegralInRange<size_t>(0, 80) : RSIZE_MAX;
  const int op = p.ConsumeIntegralInRange<int>(0, 3);
  const bool append = op >= 2, bounded = op % 2 == 1;
  // Model: the string already there (append), plus src cut to count, must fit with its NUL.
  const size_t used = append ? strnlen(dest.data(), destsz) : 0;
  const size_t take = bounded ? std::min(strlen(src.c_str()), count) : strlen(src.c_str());
  const bool ok = used < destsz && used + take < destsz;
  std::vector<char> want = dest;
  if (ok) {
    memcpy(want.data() + used, src.c_str(), take);
    want[used + take] = '\0';
  } else {
    want[0] = '\0';
  }
  errno_t e;
  switch (op) {
    case 0: e = strcpy_s(dest.data(), destsz, src.c_str()); break;
    case 1: e = strncpy_s(dest.data(), destsz, src.c_str(), count); break;
    case 2: e = strcat_s(dest.data(), destsz, src.c_str()); break;
    default: e = strncat_s(dest.data(), destsz, src.c_str(), count); break;
  }
  bvfuzz::Check((e == 0) == ok, "string routine verdict");
  bvfuzz::Check(dest == want, "string routine wrote other bytes than its model");

  // strtok_s against a plain walk of the same bytes.
  std::string text = p.ConsumeRandomLengthString(40);
  const std::string delim = p.ConsumeRandomLengthString(4);
  std::vector<char> str(text.begin(), text.end());
  str.push_back('\0');
  rsize_t max = p.ConsumeBool() ? str.size() : p.ConsumeIntegralInRange<size_t>(0, str.size());
  char* ptr = nullptr;
  char* s = str.data();
  for (int i = 0; i < 50; ++i) {
    char* tok = strtok_s(s, &max, delim.c_str(), &ptr);
    s = nullptr;
    if (tok == nullptr) break;
    bvfuzz::Check(tok >= str.data() && tok + strlen(tok) < str.data() + str.size(),
                  "strtok_s token outside the string");
    bvfuzz::Check(strpbrk(tok, delim.c_str()) == nullptr && *tok != '\0', "strtok_s token");
    bvfuzz::Check(ptr > tok && ptr <= str.data() + str.size() - 1 + 1, "strtok_s position");
  }
}

// A conversion of the printf grammar for one argument class.
enum class Cls { kInt, kLong, kDouble, kStr, kPtr };

std::string PrintfConversion(FuzzedDataProvider& p, Cls cls, int position) {
  std::string c = "%";
  if (position > 0) c += std::to_string(position) + "$";
  const int flags = p.ConsumeIntegralInRange<int>(0, 31);
  for (int i = 0; i < 5; ++i)
    if (flags & (1 << i)) c += "-+ #0"[i];
  if (p.ConsumeBool()) c += std::to_string(p.ConsumeIntegralInRange<int>(0, 40));
  if (p.ConsumeBool()) c += "." + std::to_string(p.ConsumeIntegralInRange<int>(0, 40));
  switch (cls) {
    case Cls::kInt: {
      static const char* const kLen[] = {"", "hh", "h"};
      c += kLen[p.ConsumeIntegralInRange<int>(0, 2)];
      c += "diouxXc"[p.ConsumeIntegralInRange<int>(0, 6)];
      break;
    }
    case Cls::kLong: {
      static const char* const kLen[] = {"l", "ll", "j", "z", "t", "q"};
      c += kLen[p.ConsumeIntegralInRange<int>(0, 5)];
      c += "diouxX"[p.ConsumeIntegralInRange<int>(0, 5)];
      break;
    }
    case Cls::kDouble: c += "eEfFgGaA"[p.ConsumeIntegralInRange<int>(0, 7)]; break;
    case Cls::kStr: c += 's'; break;
    default: c += 'p';
  }
  return c;
}

template <typename T>
void FuzzPrintfWith(FuzzedDataProvider& p, const std::string& format, T a0, T a1, T a2, T a3,
                    bool refuse) {
  const size_t bufsz = static_cast<size_t>(bvfuzz::Dim(p, 1, 64));
  std::string ref(4096, '\0');
  // A refused format (%n, a null string) is never handed to the C library here.
  const int n = refuse ? 0 : snprintf(&ref[0], ref.size(), format.c_str(), a0, a1, a2, a3);
  if (n < 0 || static_cast<size_t>(n) >= ref.size()) return;
  for (int which = 0; which < 2; ++which) {
    std::vector<char> buf(bufsz, kFill);
    bvfuzz::ClearLog();
    const int got = which == 0 ? sprintf_s(buf.data(), bufsz, format.c_str(), a0, a1, a2, a3)
                               : snprintf_s(buf.data(), bufsz, format.c_str(), a0, a1, a2, a3);
    std::vector<char> want(bufsz, kFill);
    if (refuse) {
      want[0] = '\0';
      bvfuzz::Check(got == (which == 0 ? 0 : -EINVAL), "refused format result");
      bvfuzz::Check(bvfuzz::LogLines().size() == 1, "refusal logs one line");
    } else if (which == 1) {
      const size_t k = std::min(static_cast<size_t>(n), bufsz - 1);
      memcpy(want.data(), ref.data(), k);
      want[k] = '\0';
      bvfuzz::Check(got == n, "snprintf_s result");
    } else if (static_cast<size_t>(n) < bufsz) {
      memcpy(want.data(), ref.data(), static_cast<size_t>(n) + 1);
      bvfuzz::Check(got == n, "sprintf_s result");
    } else {
      // Too long: sprintf_s empties the destination (what it formatted there is not kept).
      bvfuzz::Check(got == 0 && buf[0] == '\0', "sprintf_s overflow");
      continue;
    }
    bvfuzz::Check(buf == want, "formatted bytes differ from snprintf");
  }
}

void FuzzPrintf(FuzzedDataProvider& p) {
  const Cls cls = static_cast<Cls>(p.ConsumeIntegralInRange<int>(0, 4));
  const bool positional = p.ConsumeBool();
  const int conversions = p.ConsumeIntegralInRange<int>(0, 4);
  std::string format;
  bool refuse = false;
  int nextArg = 1;
  for (int i = 0; i < conversions; ++i) {
    std::string lit = p.ConsumeRandomLengthString(6);
    for (char& ch : lit)
      if (ch == '%' || ch == '\0') ch = '_';
    format += lit;
    const int bad = p.ConsumeIntegralInRange<int>(0, 15);
    if (bad == 0 && !positional) {
      format += "%n";  // refused before formatting; the pointer argument would be valid anyway
      refuse = true;
      break;
    }
    if (bad == 1) format += "%%";
    format += PrintfConversion(p, cls, positional ? nextArg : 0);
    ++nextArg;
  }
  static int sink = 0;
  switch (cls) {
    case Cls::kInt: {
      const int v = p.ConsumeIntegral<int>();
      FuzzPrintfWith<int>(p, format, v, ~v, v / 3, 0, refuse);
      break;
    }
    case Cls::kLong: {
      const long long v = p.ConsumeIntegral<long long>();
      FuzzPrintfWith<long long>(p, format, v, -(v / 2), v >> 7, 0, refuse);
      break;
    }
    case Cls::kDouble: {
      const double v = p.ConsumeFloatingPoint<double>();
      FuzzPrintfWith<double>(p, format, v, -v, v * 1e-300, 0.0, refuse);
      break;
    }
    case Cls::kStr: {
      static std::string s0, s1;
      s0 = p.ConsumeRandomLengthString(20);
      s1 = p.ConsumeRandomLengthString(20);
      // A null string argument is refused when the format is walked sequentially.
      const bool null = !positional && conversions > 1 && p.ConsumeBool();
      FuzzPrintfWith<const char*>(p, format, s0.c_str(), null ? nullptr : s1.c_str(), "x", "",
                                  refuse || null);
      break;
    }
    default: FuzzPrintfWith<void*>(p, format, &sink, nullptr, &format, &sink, refuse);
  }
}

// scanf: every conversion of one call of the same class so that the argument list is fixed:
// numeric conversions take one pointer (to 16 bytes, room for any type), text conversions a
// pointer and a size.
void FuzzScanf(FuzzedDataProvider& p) {
  const bool text = p.ConsumeBool();
  const int conversions = p.ConsumeIntegralInRange<int>(0, 4);
  std::string format;
  bool refuse = false;
  int targets = 0;
  for (int i = 0; i < conversions; ++i) {
    if (p.ConsumeBool()) format += " ";
    std::string lit = p.ConsumeRandomLengthString(3);
    for (char& ch : lit)
      if (ch == '%' || ch == '\0') ch = ':';
    format += lit;
    format += "%";
    const bool suppress = p.ConsumeIntegralInRange<int>(0, 5) == 0;
    if (suppress) format += "*";
    if (p.ConsumeBool()) format += std::to_string(p.ConsumeIntegralInRange<int>(1, 30));
    if (text) {
      switch (p.ConsumeIntegralInRange<int>(0, 3)) {
        case 0: format += "s"; break;
        case 1: format += "c"; break;
        case 2: format += "[a-z0-9]"; break;
        default: format += "[^ ,]"; break;
      }
    } else {
      static const char* const kNum[] = {"d", "hhd", "hd", "ld", "lld", "i", "x", "lx", "o",
                                         "u", "zu", "f", "lf", "Lf", "g", "e", "a", "p"};
      format += kNum[p.ConsumeIntegralInRange<int>(0, 17)];
    }
    if (!suppress) ++targets;
    if (p.ConsumeIntegralInRange<int>(0, 20) == 0) {
      format += text ? "%ls" : "%n";  // refused: nothing may be stored
      refuse = true;
    }
  }
  const std::string input = p.ConsumeRandomLengthString(80);
  alignas(16) unsigned char num[4][16];
  memset(num, kFill, sizeof num);
  std::vector<char> bufs[4];
  size_t sizes[4];
  for (int i = 0; i < 4; ++i) {
    sizes[i] = static_cast<size_t>(bvfuzz::Dim(p, 1, 32));
    bufs[i].assign(sizes[i], kFill);
  }
  int got;
  if (text) {
    got = sscanf_s(input.c_str(), format.c_str(), bufs[0].data(), sizes[0], bufs[1].data(),
                   sizes[1], bufs[2].data(), sizes[2], bufs[3].data(), sizes[3]);
  } else {
    got = sscanf_s(input.c_str(), format.c_str(), num[0], num[1], num[2], num[3]);
  }
  if (refuse) {
    bvfuzz::Check(got == EOF, "refused scan result");
    for (int i = 0; i < 4; ++i) {
      bvfuzz::Check(bufs[i] == std::vector<char>(sizes[i], kFill), "refused scan stored text");
      for (unsigned char b : num[i]) bvfuzz::Check(b == static_cast<unsigned char>(kFill), "refused scan stored a number");
    }
    return;
  }
  bvfuzz::Check(got == EOF || (got >= 0 && got <= targets), "scan count");
  if (!text && got != EOF) {
    // Numeric conversions agree with the C library's (which stores the same bytes).
    alignas(16) unsigned char ref[4][16];
    memset(ref, kFill, sizeof ref);
    const int want = sscanf(input.c_str(), format.c_str(), ref[0], ref[1], ref[2], ref[3]);
    if (want >= 0) {
      bvfuzz::Check(got == want, "scan count differs from sscanf");
      bvfuzz::Check(memcmp(num, ref, sizeof num) == 0, "scanned numbers differ from sscanf");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return bvfuzz::RunFamily(data, size, {FuzzMem, FuzzStrings, FuzzPrintf, FuzzScanf});
}
