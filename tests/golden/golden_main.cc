// Runs every registered case once per compiled and supported vector target and compares the
// digests with tests/golden/digests/<subsystem>.txt. BIVISTA_GOLDEN_UPDATE=1 rewrites the files
// instead (the targets must still agree with each other).
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "bivista/mthread.h"
#include "golden/golden.h"
#include "support/hwy_targets.h"
#include "support/platform_capture.h"

namespace bvgolden {

void Sink::Word(uint64_t v, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    h_ ^= (v >> (8 * i)) & 0xFF;
    h_ *= 0x100000001b3ull;
  }
}

void Sink::Step(size_t n) {
  if (nested_ > 0) return;
  ++steps_;
  static const bool trace = getenv("BIVISTA_GOLDEN_TRACE") != nullptr;
  if (trace) fprintf(stderr, "golden trace: call %d (%zu values) %016" PRIx64 "\n", steps_, n, h_);
}

void Sink::Bytes(const void* p, size_t n) {
  const unsigned char* b = static_cast<const unsigned char*>(p);
  for (size_t i = 0; i < n; ++i) Word(b[i], 1);
  Step(n);
}

void Sink::Text(const std::string& s) {
  ++nested_;
  Value(static_cast<uint64_t>(s.size()));
  Bytes(s.data(), s.size());
  --nested_;
  Step(s.size());
}

std::vector<Subsystem>& Registry() {
  static std::vector<Subsystem> registry;
  return registry;
}

bool Register(const char* subsystem, Maker make) {
  Registry().push_back({subsystem, make});
  return true;
}

uint64_t SeedOf(const std::string& name) {
  uint64_t h = 0xcbf29ce484222325ull;
  for (unsigned char c : name) h = (h ^ c) * 0x100000001b3ull;
  return h;
}

const vta_algo_mem_allocator_t kHeap{[](size_t n, uint64_t, uint64_t) { return malloc(n); },
                                     [](void* p, uint64_t, uint64_t) { free(p); }, nullptr};

void* SharedPool() {
  static void* pool = MThread_Create(4, nullptr, nullptr);
  return pool;
}

std::string TempDir() {
  static const std::string dir = [] {
    const char* base = getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && *base ? base : "/tmp") + "/bv_golden.XXXXXX";
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    const char* made = mkdtemp(buf.data());
    return std::string(made != nullptr ? made : "/tmp");
  }();
  return dir;
}

namespace {

// Log text without what differs between runs: addresses and the scratch directory.
std::string Normalise(std::string t) {
  const std::string dir = TempDir();
  for (size_t p; (p = t.find(dir)) != std::string::npos;) t.replace(p, dir.size(), "<dir>");
  // "%p" prints 0x..., and a format "0x%p" twice that.
  static const std::regex address("(0x)+[0-9a-fA-F]+");
  return std::regex_replace(t, address, "0x?");
}

uint64_t RunCase(const Cases::Entry& e) {
  std::error_code ec;
  for (const auto& f : std::filesystem::directory_iterator(TempDir(), ec)) {
    std::filesystem::remove_all(f.path(), ec);
  }
  bvtest::ClearProperties();
  Sink s;
  {
    bvtest::LogCapture log;
    e.run(s);
    for (const bvtest::LogLine& l : log.Lines()) {
      s.Value(l.priority);
      s.Text(l.tag);
      s.Text(Normalise(l.text));
    }
  }
  bvtest::ClearProperties();
  return s.hash();
}

std::string DigestFile(const std::string& subsystem) {
  return std::string(BIVISTA_GOLDEN_DIR) + "/digests/" + subsystem + ".txt";
}

std::vector<std::pair<std::string, uint64_t>> ReadDigests(const std::string& path) {
  std::vector<std::pair<std::string, uint64_t>> out;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string name, hex;
    fields >> name >> hex;
    out.emplace_back(name, strtoull(hex.c_str(), nullptr, 16));
  }
  return out;
}

std::string Hex(uint64_t v) {
  char b[17];
  snprintf(b, sizeof b, "%016" PRIx64, v);
  return b;
}

}  // namespace
}  // namespace bvgolden

TEST(Golden, SameDigestsOnEveryTarget) {
  using namespace bvgolden;
  const char* env = getenv("BIVISTA_GOLDEN_UPDATE");
  const bool update = env != nullptr && env[0] == '1';
  // BIVISTA_GOLDEN_TRACE=<case> runs that case alone and traces its calls on every target.
  const char* trace = getenv("BIVISTA_GOLDEN_TRACE");
  std::vector<Subsystem> subs = Registry();
  std::sort(subs.begin(), subs.end(),
            [](const Subsystem& a, const Subsystem& b) { return a.name < b.name; });
  for (const Subsystem& sub : subs) {
    SCOPED_TRACE(sub.name);
    Cases cases;
    sub.make(cases);
    std::map<std::string, uint64_t> first;
    std::string targets;
    bvtest::ForEachHwyTarget([&](const char* target) {
      targets += std::string(" ") + target;
      for (const Cases::Entry& e : cases.list()) {
        if (trace != nullptr && e.name != trace) continue;
        if (trace != nullptr) fprintf(stderr, "golden trace: %s on %s\n", e.name.c_str(), target);
        const uint64_t d = RunCase(e);
        auto it = first.find(e.name);
        if (it == first.end()) {
          first.emplace(e.name, d);
        } else {
          EXPECT_EQ(Hex(d), Hex(it->second)) << e.name << " differs on " << target;
        }
      }
    });
    if (trace != nullptr) continue;
    ASSERT_EQ(first.size(), cases.list().size()) << "case names must be unique";
    const std::string path = DigestFile(sub.name);
    if (update) {
      std::ofstream out(path);
      for (const Cases::Entry& e : cases.list()) out << e.name << ' ' << Hex(first[e.name]) << '\n';
      ASSERT_TRUE(out.good()) << "cannot write " << path;
      printf("golden: wrote %zu digests to %s\n", cases.list().size(), path.c_str());
      continue;
    }
    std::map<std::string, uint64_t> expected;
    for (const auto& kv : ReadDigests(path)) {
      EXPECT_TRUE(expected.emplace(kv.first, kv.second).second) << "listed twice: " << kv.first;
    }
    for (const Cases::Entry& e : cases.list()) {
      auto it = expected.find(e.name);
      if (it == expected.end()) {
        ADD_FAILURE() << "no digest for " << e.name << " in " << path
                      << " (BIVISTA_GOLDEN_UPDATE=1 writes it)";
        continue;
      }
      EXPECT_EQ(Hex(first[e.name]), Hex(it->second)) << e.name;
      expected.erase(it);
    }
    for (const auto& kv : expected) ADD_FAILURE() << "stale digest in " << path << ": " << kv.first;
    printf("golden: %s: %zu cases on%s\n", sub.name.c_str(), cases.list().size(), targets.c_str());
  }
  std::error_code ec;
  std::filesystem::remove_all(TempDir(), ec);
}
