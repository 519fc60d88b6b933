// Golden digests: every exported routine run on fixed seeded inputs, each output buffer and log
// line hashed, the digests compared with tests/golden/digests/<subsystem>.txt. See README.md.
#ifndef BIVISTA_TESTS_GOLDEN_GOLDEN_H
#define BIVISTA_TESTS_GOLDEN_GOLDEN_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "bivista/mem_services.h"

namespace bvgolden {

// 64-bit FNV-1a over what a case hands it. Multi-byte values are taken little-endian, element by
// element, and every not-a-number as one pattern (x86 and Arm make different NaN bits for 0/0),
// so a digest depends on values only, never on padding, pointers or the host's byte order.
class Sink {
 public:
  void Bytes(const void* p, size_t n);
  template <typename T>
  void Values(const T* p, size_t n) {
    static_assert(std::is_arithmetic<T>::value, "numbers only");
    ++nested_;
    for (size_t i = 0; i < n; ++i) Value(p[i]);
    --nested_;
    Step(n);
  }
  template <typename T>
  void Values(const std::vector<T>& v) {
    Values(v.data(), v.size());
  }
  template <typename T>
  void Value(T v) {
    if (std::is_floating_point<T>::value && v != v) {
      Word(0x7FF8000000000000ull, 8);
      Step(1);
      return;
    }
    uint64_t bits = 0;
    if (std::is_same<T, float>::value) {
      uint32_t u;
      memcpy(&u, &v, 4);
      bits = u;
    } else if (std::is_same<T, double>::value) {
      memcpy(&bits, &v, 8);
    } else {
      bits = static_cast<uint64_t>(v);
    }
    Word(bits, sizeof(T));
    Step(1);
  }
  void Text(const std::string& s);
  uint64_t hash() const { return h_; }

 private:
  void Word(uint64_t v, size_t n);
  // With BIVISTA_GOLDEN_TRACE set, each top-level call prints its ordinal and the running hash,
  // so that two targets' traces show the first call that differs.
  void Step(size_t n);
  uint64_t h_ = 0xcbf29ce484222325ull;
  int nested_ = 0;
  int steps_ = 0;
};

using CaseFn = std::function<void(Sink&)>;
class Rng;

// The cases of one subsystem, in the order they are added; names are unique within it.
class Cases {
 public:
  void Add(const std::string& name, CaseFn run) { list_.push_back({name, std::move(run)}); }
  // A case whose inputs come from an Rng seeded with SeedOf(name).
  void Seeded(const std::string& name, std::function<void(Sink&, Rng&)> run);
  struct Entry {
    std::string name;
    CaseFn run;
  };
  const std::vector<Entry>& list() const { return list_; }

 private:
  std::vector<Entry> list_;
};

using Maker = void (*)(Cases&);
// Called from a namespace-scope initialiser (BVGOLDEN_CASES); returns true.
bool Register(const char* subsystem, Maker make);
struct Subsystem {
  std::string name;
  Maker make;
};
std::vector<Subsystem>& Registry();

// Deterministic inputs: splitmix64, the same numbers on every machine.
class Rng {
 public:
  explicit Rng(uint64_t seed) : s_(seed) {}
  uint64_t Next() {
    uint64_t z = (s_ += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
  int Int(int lo, int hi) {  // inclusive
    return lo + static_cast<int>(Next() % static_cast<uint64_t>(hi - lo + 1));
  }
  float Float(float lo, float hi) {  // 24 random bits: exact on every target
    return lo + (hi - lo) * static_cast<float>(Next() >> 40) * (1.0f / 16777216.0f);
  }
  template <typename T>
  std::vector<T> Bytes(size_t n, int lo = 0, int hi = 255) {
    std::vector<T> v(n);
    for (auto& x : v) x = static_cast<T>(Int(lo, hi));
    return v;
  }
  std::vector<float> Floats(size_t n, float lo, float hi) {
    std::vector<float> v(n);
    for (auto& x : v) x = Float(lo, hi);
    return v;
  }
  std::vector<uint8_t> Mask(size_t n, int percentOn, uint8_t on) {
    std::vector<uint8_t> v(n);
    for (auto& x : v) x = Int(0, 99) < percentOn ? on : 0;
    return v;
  }

 private:
  uint64_t s_;
};

// A host memory table on the C library.
extern const vta_algo_mem_allocator_t kHeap;

// "<w>x<h>", for case names.
inline std::string Dims(int w, int h) { return std::to_string(w) + "x" + std::to_string(h); }

// Hashes n elements of a destination filled with `fill` after call(destination) wrote it.
template <typename T, typename F>
void Into(Sink& s, size_t n, T fill, F call) {
  std::vector<T> dst(n, fill);
  call(dst.data());
  s.Values(dst);
}

// Seed from a case name, so that a case's inputs do not depend on the cases before it.
uint64_t SeedOf(const std::string& name);

inline void Cases::Seeded(const std::string& name, std::function<void(Sink&, Rng&)> run) {
  Add(name, [name, run](Sink& s) {
    Rng rng(SeedOf(name));
    run(s, rng);
  });
}

// A scratch directory, and its path replaced by "<dir>" in the log lines of the case.
std::string TempDir();

// A pool of 4 workers made once for the program (workers belong to the process, not to a case);
// the first call makes it, so call it once outside any case's log.
void* SharedPool();

}  // namespace bvgolden

#define BVGOLDEN_CAT2(a, b) a##b
#define BVGOLDEN_CAT(a, b) BVGOLDEN_CAT2(a, b)
// BVGOLDEN_CASES(morphology) { cases.Add("name", [](bvgolden::Sink& s) { ... }); }
#define BVGOLDEN_CASES(subsystem)                                                          \
  static void BVGOLDEN_CAT(BvGoldenMake_, subsystem)(bvgolden::Cases & cases);             \
  static const bool BVGOLDEN_CAT(bvgolden_registered_, subsystem) =                        \
      bvgolden::Register(#subsystem, &BVGOLDEN_CAT(BvGoldenMake_, subsystem));             \
  static void BVGOLDEN_CAT(BvGoldenMake_, subsystem)(bvgolden::Cases & cases)

#endif
