// The fast global smoother and its exported building blocks.
#include "bivista/fgs.h"

#include <math.h>
#include <stddef.h>
#include <string.h>
#include <time.h>

#include <atomic>

#include "bivista/mthread.h"
#include "common/log_internal.h"
#include "depthrefine/fgs/fgs_kernels.h"
#include "matrix/matrix_kernels.h"
#include "mthread/handoff.h"

using bivista::kTagAlgo;

namespace bivista {

void (*fgsPassHook)(int participant, int pass) = nullptr;

namespace {

constexpr char kTag[] = "OPT_SMOOTH";
constexpr char kFGSFilter[] = "FGSFilter";
constexpr int kLineAllocFailure = 511;
constexpr int kLineEnter = 527;

constexpr float kE = 2.7182817f;
constexpr float kMaskedCoupling = -0.01f;
constexpr float kDecay = 0.25f;

// table[d] = -powf(e, -0.5 (d / sigma)^2) x lambda, 1 / sigma taken once.
void BuildTable(float sigma, float lambda, float* table) {
  const float inv = 1.0f / sigma;
  for (int d = 0; d < 256; ++d) {
    const float t = static_cast<float>(d) * inv;
    table[d] = -powf(kE, -0.5f * t * t) * lambda;
  }
}

// weights[r][x] = value where mask[r][x] is nonzero, for r < rows and x < used (rows of cols).
void SetMasked(float* weights, const uint8_t* mask, int rows, int cols, int used, float value) {
  for (int r = 0; r < rows; ++r) {
    const ptrdiff_t o = static_cast<ptrdiff_t>(r) * cols;
    for (int x = 0; x < used; ++x) {
      if (mask[o + x] != 0) weights[o + x] = value;
    }
  }
}

void ZeroColumn(float* w, int rows, int cols, int x) {
  for (int r = 0; r < rows; ++r) w[static_cast<ptrdiff_t>(r) * cols + x] = 0.0f;
}

// Rows x cols couplings of an interleaved guide of `channels` bytes per pixel.
void GuideWeightsInterleaved(float* weights, const uint8_t* guide, int rows, int cols,
                             int channels, const float* table) {
  if (rows < 1 || cols < 1) return;
  if (channels == 3) {
    FgsWeights3(guide, guide + 3, 3 * static_cast<ptrdiff_t>(cols), rows, cols - 1, table,
                weights, cols);
  } else {
    for (int r = 0; r < rows; ++r) {
      float* o = weights + static_cast<ptrdiff_t>(r) * cols;
      for (int x = 0; x + 1 < cols; ++x) {
        // No bytes compared without channels: the difference is 0 (and no pixel is addressed).
        if (channels < 1) {
          o[x] = table[0];
          continue;
        }
        const uint8_t* g = guide + (static_cast<ptrdiff_t>(r) * cols + x) * channels;
        o[x] = table[fgs::MaxDiff(g, g + channels, channels)];
      }
    }
  }
  ZeroColumn(weights, rows, cols, cols - 1);
}

void GuideWeightsPlanar(float* weights, const uint8_t* guide, int rows, int cols, int planes,
                        const float* table) {
  if (rows < 1 || cols < 1) return;
  const ptrdiff_t planeSize = static_cast<ptrdiff_t>(rows) * cols;
  for (ptrdiff_t i = 0; i < planeSize; ++i) {
    // The last column's pair would cross into the next row; it is set to 0 below.
    if ((i + 1) % cols == 0) continue;
    int m = 0;
    for (int p = 0; p < planes; ++p) {
      const uint8_t* g = guide + p * planeSize + i;
      const int d = g[0] > g[1] ? g[0] - g[1] : g[1] - g[0];
      m = d > m ? d : m;
    }
    weights[i] = table[m];
  }
  ZeroColumn(weights, rows, cols, cols - 1);
}

// The 3-byte-pixel transpose of guide (rows x cols pixels), cut or zero-filled to `bytes`.
void RotateGuideInto(uint8_t* dst, int64_t bytes, const uint8_t* src, int rows, int cols) {
  const int64_t full = static_cast<int64_t>(rows) * cols * 3;
  for (int j = 0; j < cols; ++j) {
    for (int i = 0; i < rows; ++i) {
      const int64_t o = (static_cast<int64_t>(j) * rows + i) * 3;
      const uint8_t* s = src + (static_cast<int64_t>(i) * cols + j) * 3;
      for (int k = 0; k < 3 && o + k < bytes; ++k) dst[o + k] = s[k];
    }
  }
  if (bytes > full) memset(dst + full, 0, static_cast<size_t>(bytes - full));
}

// Internal passes when the pool lacks workers (see FGSFilter): rows with the record's part of the
// scratch plane as workspace; columns of a plane lineCount values wide. No decay inside.
void* SolveRowsJob(void* param, int) {
  const DREF_FGSThreadParam& p = *static_cast<const DREF_FGSThreadParam*>(param);
  FgsSolveRowsWork(p.data, p.weight, p.lineLength, p.startLine, p.endLine,
                   p.scratch + static_cast<ptrdiff_t>(p.startLine) * p.lineLength,
                   p.endLine - p.startLine, nullptr, kDecay);
  return nullptr;
}

void* SolveColumnsJob(void* param, int) {
  const DREF_FGSThreadParam& p = *static_cast<const DREF_FGSThreadParam*>(param);
  FgsSolveColumns(p.data, p.weight, p.scratch, p.lineCount, p.lineLength, p.startLine, p.endLine,
                  nullptr, kDecay);
  return nullptr;
}

// Worker i of T takes lines (i x N) / T .. ((i + 1) x N) / T, the last up to N; then one sync.
void SplitAndRun(float* data, const float* weights, float* scratch, int lineCount, int lineLength,
                 DREF_FGSThreadParam* records, void* pool, int threadCount, MThread_Func job) {
  for (int i = 0; i < threadCount; ++i) {
    DREF_FGSThreadParam& r = records[i];
    r.data = data;
    r.weight = const_cast<float*>(weights);
    r.scratch = scratch;
    r.lineCount = lineCount;
    r.lineLength = lineLength;
    r.startLine = static_cast<int32_t>(static_cast<int64_t>(i) * lineCount / threadCount);
    r.endLine = i == threadCount - 1
                    ? lineCount
                    : static_cast<int32_t>(static_cast<int64_t>(i + 1) * lineCount / threadCount);
    MThread_Boot(pool, i, job, &records[i]);
  }
  MThread_Sync(pool, 0, threadCount);
}

// Per-pixel work of the filter outside the solves, split by rows over the pool's workers (at
// most as many as it has, so every boot runs). Couplings of the last column and the last row
// stay 0.
enum AuxWork { kAuxBuild = 1, kAuxAdapt = 2, kAuxDecay = 4 };
constexpr int kMaxAuxWorkers = 8;

struct AuxJob {
  const uint8_t* guide;  // interleaved, 3 bytes per pixel (kAuxBuild)
  const uint8_t* mask;
  float* hW;
  float* vW;  // upright: coupling of rows y and y + 1 at (y, x)
  const float* table;
  int width;
  int height;
  int rowFirst;
  int rowEnd;
  int work;
  bool maskClear;  // the mask is all 0: nothing is masked, every coupling decays
};

void* AuxJobRun(void* argument, int) {
  const AuxJob& j = *static_cast<const AuxJob*>(argument);
  const int w = j.width;
  const int rows = j.rowEnd - j.rowFirst;
  const int vRows = (j.rowEnd < j.height - 1 ? j.rowEnd : j.height - 1) - j.rowFirst;
  const ptrdiff_t o = static_cast<ptrdiff_t>(j.rowFirst) * w;
  const ptrdiff_t stride = 3 * static_cast<ptrdiff_t>(w);
  if (rows < 1) return nullptr;
  const bool build = (j.work & kAuxBuild) != 0;
  if (build) {
    // Masked couplings are set while building.
    const uint8_t* masked = (j.work & kAuxAdapt) && !j.maskClear ? j.mask + o : nullptr;
    FgsWeights3(j.guide + 3 * o, j.guide + 3 * o + 3, stride, rows, w - 1, j.table, j.hW + o, w,
                masked, kMaskedCoupling);
    if (vRows > 0) {
      FgsWeights3(j.guide + 3 * o, j.guide + 3 * o + stride, stride, vRows, w, j.table, j.vW + o,
                  w, masked, kMaskedCoupling);
    }
  }
  if (j.work & kAuxAdapt) {
    if (!build && !j.maskClear) {
      FgsSetMasked(j.hW + o, j.mask + o, static_cast<ptrdiff_t>(rows) * w, kMaskedCoupling);
      if (vRows > 0) {
        FgsSetMasked(j.vW + o, j.mask + o, static_cast<ptrdiff_t>(vRows) * w, kMaskedCoupling);
      }
    }
    ZeroColumn(j.hW + o, rows, w, w - 1);
    if (j.rowEnd == j.height) memset(j.vW + (o + static_cast<ptrdiff_t>(rows - 1) * w), 0, sizeof(float) * w);
  }
  if (j.work & kAuxDecay) {
    const uint8_t* m = j.maskClear ? nullptr : j.mask + o;
    FgsDecay(j.hW + o, m, static_cast<ptrdiff_t>(rows) * w, kDecay);
    FgsDecay(j.vW + o, m, static_cast<ptrdiff_t>(rows) * w, kDecay);
  }
  return nullptr;
}

void RunAux(const AuxJob& all, void* pool, int threadCount) {
  int workers = 1;
  if (pool != nullptr && threadCount > 1) {
    const MThread_Pool* p = static_cast<const MThread_Pool*>(pool);
    workers = p->workers == nullptr ? 1 : p->count < threadCount ? p->count : threadCount;
    workers = workers < kMaxAuxWorkers ? workers : kMaxAuxWorkers;
  }
  if (workers <= 1) {
    AuxJob job = all;
    AuxJobRun(&job, 0);
    return;
  }
  AuxJob jobs[kMaxAuxWorkers];
  for (int i = 0; i < workers; ++i) {
    jobs[i] = all;
    jobs[i].rowFirst = static_cast<int>(static_cast<int64_t>(i) * all.height / workers);
    jobs[i].rowEnd = static_cast<int>(static_cast<int64_t>(i + 1) * all.height / workers);
    MThread_Boot(pool, i, AuxJobRun, &jobs[i]);
  }
  MThread_Sync(pool, 0, workers);
}

// The whole filter as one job per participant (the caller, and pool workers 1 .. count - 1):
// per iteration the row solves (the first one building each chunk's couplings just before
// solving it) and the column solves. Participant i owns a slice of the rows, its share of the
// row chunks, in every pass: it solves those rows and, in the column passes (Pipeline), those
// rows of every column, so the plane's values, couplings and coefficients stay in its core's
// caches from pass to pass (moving lines between cores costs more than solving them). Having
// done its share of a row pass, a participant takes the others' remaining chunks, then waits
// until the pass is done; in a column pass it takes others' tasks after a short patience. Every
// line is solved exactly as by the separate passes, so the results do not depend on who takes
// what. Workers are woken once per call, and a late or descheduled one holds up the others at
// most that patience.
// Chunks: couplings of 32 rows (iterations < 1: a pass of their own); row solves of 128 rows
// (their own rows of the scratch plane are the workspace: two bands of 64); column bands of 128
// columns (whole cache lines; at most kMaxBands bands).
constexpr int kAuxRows = 32;
constexpr int kRowChunk = 128;
constexpr int kColumnChunk = 128;
constexpr int kMaxMembers = 8;
constexpr int kMaxBands = 64;

struct Team {
  AuxJob aux;  // the whole plane; rows cut per chunk
  float* data;
  float* scratch;
  int iterations;
  int count;  // participants
  // Per participant: chunks of its shares handed out, over all passes.
  struct alignas(64) Share {
    std::atomic<int64_t> taken{0};
  };
  Share shares[kMaxMembers];
  std::atomic<int64_t> completed{0};  // chunks finished, over all passes
  Waiter waiter;
  // Column passes: per row slice and band, the state of its task (see Pipeline).
  struct alignas(64) Slice {
    std::atomic<int> state[kMaxBands];
  };
  Slice slices[kMaxMembers]{};
};

int64_t ChunkCount(int n, int size) { return n > 0 ? (static_cast<int64_t>(n) + size - 1) / size : 0; }

// Chunks [ShareBegin(n, i, count), ShareBegin(n, i + 1, count)) of n are participant i's share.
int64_t ShareBegin(int64_t n, int i, int count) { return n * i / count; }

// Column bands: at most kMaxBands of whole cache lines, kColumnChunk wide where that suffices.
int BandWidth(int w) {
  const int64_t bands = ChunkCount(w, kColumnChunk) < kMaxBands ? ChunkCount(w, kColumnChunk)
                                                                 : kMaxBands;
  const int64_t width = bands > 0 ? (ChunkCount(w, static_cast<int>(bands)) + 15) / 16 * 16 : 16;
  return static_cast<int>(width);
}

// Participant i's rows: its share of the row chunks, so that the column passes touch the rows
// its row passes solved.
int SliceBegin(int h, int i, int count) {
  const int64_t y = ShareBegin(ChunkCount(h, kRowChunk), i, count) * kRowChunk;
  return y < h ? static_cast<int>(y) : h;
}

// One column pass as a pipeline over the participants' row slices (the non-empty ones): per
// band, each slice sweeps down after the slice above, the bottom slice turns back up at once,
// and each slice goes back up after the slice below. A participant runs its own slice's tasks,
// so the plane's values stay with the participant whose rows they are (only one row per band
// and slice boundary crosses); one that has found no task of its own for kPatienceNs takes any
// ready task, so a descheduled participant holds up the others only that long. Every column
// sees exactly the operations of one whole-column solve. Each band of each slice completes one
// chunk. Task state per slice and band: tag x 4 + 0 sweep taken, + 1 swept, + 2 return taken,
// + 3 finished; below tag x 4: not started in this pass.
constexpr int64_t kPatienceNs = 200000;

int64_t NowNs() {
  timespec q;
  clock_gettime(CLOCK_MONOTONIC, &q);
  return static_cast<int64_t>(q.tv_sec) * 1000000000 + q.tv_nsec;
}

struct Pipeline {
  Team& t;
  int tag;
  const uint8_t* decay;
  int width;
  int bands;
  int slices;  // non-empty ones
  int first[kMaxMembers + 1];  // rows of slice k: [first[k], first[k + 1])
  int owner[kMaxMembers];

  Pipeline(Team& team, int tagValue, const uint8_t* decayMask)
      : t(team), tag(tagValue), decay(decayMask) {
    const int h = t.aux.height;
    width = BandWidth(t.aux.width);
    bands = static_cast<int>(ChunkCount(t.aux.width, width));
    slices = 0;
    for (int i = 0; i < t.count; ++i) {
      const int y0 = SliceBegin(h, i, t.count);
      const int y1 = SliceBegin(h, i + 1, t.count);
      if (y0 >= y1) continue;
      first[slices] = y0;
      owner[slices++] = i;
      first[slices] = y1;
    }
  }
  std::atomic<int>& State(int k, int b) { return t.slices[k].state[b]; }
  int Load(int k, int b) { return State(k, b).load(std::memory_order_acquire); }
  // Claims a ready task of slice k (with take; else only looks for one); returns its band and
  // whether it is the return (up).
  bool Claim(int k, int* band, bool* up, bool take = true) {
    const int base = tag * 4;
    const bool bottom = k == slices - 1;
    for (int b = 0; !bottom && b < bands; ++b) {
      int s = base + 1;
      if (Load(k, b) == s && Load(k + 1, b) == base + 3 &&
          (!take || State(k, b).compare_exchange_strong(s, base + 2, std::memory_order_acq_rel))) {
        *band = b;
        *up = true;
        return true;
      }
    }
    for (int b = 0; b < bands; ++b) {
      int s = Load(k, b);
      if (s < base && (k == 0 || Load(k - 1, b) >= base + 1) &&
          (!take || State(k, b).compare_exchange_strong(s, base, std::memory_order_acq_rel))) {
        *band = b;
        *up = false;
        return true;
      }
    }
    return false;
  }
  bool AllClaimed() {
    for (int k = 0; k < slices; ++k) {
      const int least = k == slices - 1 ? tag * 4 : tag * 4 + 2;
      for (int b = 0; b < bands; ++b) {
        if (Load(k, b) < least) return false;
      }
    }
    return true;
  }
  void Run(int k, int b, bool up) {
    const bool bottom = k == slices - 1;
    const int w = t.aux.width;
    const int x0 = b * width;
    const int x1 = w - x0 < width ? w : x0 + width;
    FgsSolveColumnsSlice(t.data, t.aux.vW, t.scratch, w, t.aux.height, x0, x1, first[k],
                         first[k + 1], !up, up || bottom, decay, kDecay, t.aux.maskClear);
    const bool done = up || bottom;
    t.waiter.Wake([&] {
      State(k, b).store(tag * 4 + (done ? 3 : 1), std::memory_order_release);
      if (done) t.completed.fetch_add(1, std::memory_order_release);
    });
  }
  void Member(int me) {
    int mine = -1;
    for (int k = 0; k < slices; ++k) mine = owner[k] == me ? k : mine;
    int64_t idleSince = -1;
    int band = 0;
    bool up = false;
    for (;;) {
      if (mine >= 0 && Claim(mine, &band, &up)) {
        Run(mine, band, up);
        idleSince = -1;
        continue;
      }
      if (AllClaimed()) return;
      const int64_t now = NowNs();
      if (idleSince < 0) idleSince = now;
      if (mine < 0 || now - idleSince >= kPatienceNs) {
        bool ran = false;
        for (int k = 0; k < slices && !ran; ++k) {
          if (k != mine && Claim(k, &band, &up)) {
            Run(k, band, up);
            ran = true;
          }
        }
        if (ran) continue;
        // Nothing ready anywhere: the tasks in progress end with a wake-up.
        t.waiter.WaitFor([&] {
          int b = 0;
          bool u = false;
          for (int k = 0; k < slices; ++k) {
            if (Claim(k, &b, &u, false)) return true;
          }
          return AllClaimed();
        });
        continue;
      }
      CpuRelax();
    }
  }
};

void* MemberRun(void* argument, int index) {
  Team& t = *static_cast<Team*>(argument);
  const int me = index >= 0 ? index % t.count : 0;
  const int h = t.aux.height;
  const int w = t.aux.width;
  // The column passes' slices and bands, set once; each pass gives its tag and decay.
  Pipeline columns(t, 0, nullptr);
  const int64_t counts[3] = {ChunkCount(h, kAuxRows), ChunkCount(h, kRowChunk),
                             static_cast<int64_t>(columns.bands) * columns.slices};
  const int64_t passes = 1 + 2 * static_cast<int64_t>(t.iterations > 0 ? t.iterations : 0);
  // base: chunks of all earlier passes; shareBase[j]: chunks of j's shares in them.
  int64_t base = 0;
  int64_t shareBase[kMaxMembers] = {};
  // With iterations, the first row pass builds each chunk's couplings right before solving it.
  for (int64_t pass = t.iterations > 0 ? 1 : 0; pass < passes; ++pass) {
    // 0: couplings; then rows and columns of iteration (pass - 1) / 2.
    const int kind = pass == 0 ? 0 : pass % 2 == 1 ? 1 : 2;
    const uint8_t* decay = (pass - 1) / 2 + 1 < t.iterations ? t.aux.mask : nullptr;
    const int64_t n = counts[kind];
    if (fgsPassHook != nullptr) fgsPassHook(me, static_cast<int>(pass));
    if (kind == 2) {
      columns.tag = static_cast<int>((pass + 1) / 2);
      columns.decay = decay;
      columns.Member(me);
    }
    // Own share first, then the next participants' in turn.
    for (int k = 0; kind != 2 && k < t.count; ++k) {
      const int j = (me + k) % t.count;
      const int64_t first = ShareBegin(n, j, t.count);
      const int64_t size = ShareBegin(n, j + 1, t.count) - first;
      std::atomic<int64_t>& taken = t.shares[j].taken;
      int64_t got = taken.load(std::memory_order_relaxed);
      while (got < shareBase[j] + size) {
        if (!taken.compare_exchange_weak(got, got + 1, std::memory_order_relaxed)) continue;
        const int c = static_cast<int>(first + got - shareBase[j]);
        if (kind == 0) {
          AuxJob aux = t.aux;
          aux.rowFirst = c * kAuxRows;
          aux.rowEnd = h - aux.rowFirst < kAuxRows ? h : aux.rowFirst + kAuxRows;
          AuxJobRun(&aux, 0);
        } else if (kind == 1) {
          const int r0 = c * kRowChunk;
          const int r1 = h - r0 < kRowChunk ? h : r0 + kRowChunk;
          for (int y = r0; pass == 1 && y < r1; y += kAuxRows) {
            AuxJob aux = t.aux;
            aux.rowFirst = y;
            aux.rowEnd = r1 - y < kAuxRows ? r1 : y + kAuxRows;
            AuxJobRun(&aux, 0);
          }
          FgsSolveRowsWork(t.data, t.aux.hW, w, r0, r1,
                           t.scratch + static_cast<ptrdiff_t>(r0) * w, r1 - r0, decay, kDecay,
                           t.aux.maskClear);
        } else {
          const int x0 = c * kColumnChunk;
          const int x1 = w - x0 < kColumnChunk ? w : x0 + kColumnChunk;
          FgsSolveColumns(t.data, t.aux.vW, t.scratch, w, h, x0, x1, decay, kDecay,
                          t.aux.maskClear);
        }
        t.waiter.Wake([&] { t.completed.fetch_add(1, std::memory_order_release); });
        got = taken.load(std::memory_order_relaxed);
      }
    }
    for (int j = 0; kind != 2 && j < t.count; ++j) {
      shareBase[j] += ShareBegin(n, j + 1, t.count) - ShareBegin(n, j, t.count);
    }
    base += n;
    if (pass + 1 < passes) {
      t.waiter.WaitFor([&] { return t.completed.load(std::memory_order_acquire) >= base; });
    }
  }
  return nullptr;
}

// Whether the team can run: every worker 1 .. count - 1 exists in the pool (no pool: the caller
// alone).
bool TeamRuns(void* pool, int count) {
  if (pool == nullptr) return true;
  if (count < 1 || count > kMaxMembers) return false;
  const MThread_Pool* p = static_cast<const MThread_Pool*>(pool);
  return p->workers != nullptr && count <= p->count;
}

void RunTeam(const AuxJob& aux, float* data, float* scratch, int iterations, void* pool,
             int count) {
  Team team;
  team.aux = aux;
  team.data = data;
  team.scratch = scratch;
  team.iterations = iterations;
  team.count = count;
  for (int i = 1; i < count; ++i) MThread_Boot(pool, i, MemberRun, &team);
  MoveQueuedOff(pool, 1, count - 1);
  MemberRun(&team, 0);
  if (count > 1) MThread_Sync(pool, 1, count - 1);
}

// Whether no byte of the mask is set (blocks, so that a set byte ends the scan early).
bool AllClear(const uint8_t* mask, int64_t n) {
  constexpr int64_t kBlock = 4096;
  for (int64_t i = 0; i < n; i += kBlock) {
    const int64_t end = n - i < kBlock ? n : i + kBlock;
    uint8_t any = 0;
    for (int64_t k = i; k < end; ++k) any |= mask[k];
    if (any != 0) return false;
  }
  return true;
}

size_t Bytes(int64_t count, int64_t elementSize) {
  const int64_t bytes = count * elementSize;
  return bytes > 0 ? static_cast<size_t>(bytes) : 0;
}

}  // namespace
}  // namespace bivista

void* DREF_FGSFilter1D_started(void* param, int) {
  const DREF_FGSThreadParam* p = static_cast<const DREF_FGSThreadParam*>(param);
  bivista::FgsSolveRows(p->data, p->weight, p->scratch, p->lineLength, p->startLine, p->endLine);
  return nullptr;
}

void DREF_FGSFilter1D(float* data, const float* weights, float* scratch, int lineCount,
                      int lineLength) {
  bivista::FgsSolveRows(data, weights, scratch, lineLength, 0, lineCount);
}

void DREF_FGSFilter1D_multiThread(float* data, const float* weights, float* scratch,
                                  int lineCount, int lineLength, DREF_FGSThreadParam* records,
                                  void* pool, int threadCount) {
  bivista::SplitAndRun(data, weights, scratch, lineCount, lineLength, records, pool, threadCount,
                       DREF_FGSFilter1D_started);
}

void DREF_FGS_filter(float* data, const float* hWeights, const float* vWeights, int height,
                     int width, float* scratch, DREF_FGSThreadParam* records, void* pool,
                     int threadCount) {
  auto pass = [&](float* d, const float* w, float* s, int lines, int length) {
    if (pool == nullptr) {
      DREF_FGSFilter1D(d, w, s, lines, length);
    } else {
      DREF_FGSFilter1D_multiThread(d, w, s, lines, length, records, pool, threadCount);
    }
  };
  pass(data, hWeights, scratch, height, width);
  DREF_Rotate_1D_FLOAT(scratch, data, height, width);
  pass(scratch, vWeights, data, width, height);
  DREF_Rotate_1D_FLOAT(data, scratch, width, height);
}

float _gauss(float x, float sigma) {
  const float t = x / sigma;
  return -powf(bivista::kE, -0.5f * t * t);
}

void DREF_FGSGuideToWeight_yuv(float* weights, const uint8_t* guide, int rows, int cols,
                               int channels, float sigma, float lambda) {
  float table[256];
  bivista::BuildTable(sigma, lambda, table);
  bivista::GuideWeightsInterleaved(weights, guide, rows, cols, channels, table);
}

void DREF_FGSGuideToWeight_plane(float* weights, const uint8_t* guide, int rows, int cols,
                                 int planes, float sigma, float lambda) {
  float table[256];
  bivista::BuildTable(sigma, lambda, table);
  bivista::GuideWeightsPlanar(weights, guide, rows, cols, planes, table);
}

void DREF_GetFGS_Weight(const uint8_t* guide, int height, int width, int channels,
                        uint32_t guideFormat, float* hWeights, float* vWeights,
                        uint8_t* transposedGuide, float sigma, float lambda) {
  if (guideFormat != 0) return;
  DREF_FGSGuideToWeight_yuv(hWeights, guide, height, width, channels, sigma, lambda);
  DREF_Rotate_yuv(transposedGuide, guide, height, width);
  // The transposed guide has 3 bytes a pixel: more channels would read past it.
  DREF_FGSGuideToWeight_yuv(vWeights, transposedGuide, width, height, channels < 3 ? channels : 3,
                            sigma, lambda);
}

void DREF_Rotate_1D_UCHAR(uint8_t* dst, const uint8_t* src, int srcRows, int srcCols) {
  if (srcRows < 1) return;
  // 8 x 8 tiles keep both sides in cache.
  for (int i0 = 0; i0 < srcRows; i0 += 8) {
    const int i1 = srcRows - i0 < 8 ? srcRows : i0 + 8;
    for (int j0 = 0; j0 < srcCols; j0 += 8) {
      const int j1 = srcCols - j0 < 8 ? srcCols : j0 + 8;
      for (int i = i0; i < i1; ++i) {
        for (int j = j0; j < j1; ++j) {
          dst[static_cast<ptrdiff_t>(j) * srcRows + i] = src[static_cast<ptrdiff_t>(i) * srcCols + j];
        }
      }
    }
  }
}

void DREF_Rotate_1D_FLOAT(float* dst, const float* src, int srcRows, int srcCols) {
  if (srcRows < 1 || srcCols < 1) return;
  bivista::TransposeF32(src, srcRows, srcCols, dst, srcRows);
}

void DREF_Rotate_yuv(uint8_t* dst, const uint8_t* src, int srcRows, int srcCols) {
  if (srcRows < 1 || srcCols < 1) return;
  bivista::RotateGuideInto(dst, static_cast<int64_t>(srcRows) * srcCols * 3, src, srcRows,
                           srcCols);
}

void changeWeight(float* weights, const uint8_t* mask, int rows, int cols, float value) {
  bivista::SetMasked(weights, mask, rows, cols, cols - 1, value);
}

void adaptWeightBymask(float* hWeights, float* vWeights, const uint8_t* mask,
                       const uint8_t* transposedMask, int height, int width, float value) {
  changeWeight(hWeights, mask, height, width, value);
  changeWeight(vWeights, transposedMask, width, height, value);
}

float updateWeight(float* hWeights, float* vWeights, int count, const uint8_t* mask,
                   const uint8_t* transposedMask, float factor) {
  const float inv = 1.0f / factor;
  if (count > 0) {
    bivista::FgsDecay(hWeights, mask, count, inv);
    bivista::FgsDecay(vWeights, transposedMask, count, inv);
  }
  return inv;
}

void fgs_safeDeleteMem(void* pointer, const vta_algo_mem_allocator_t* allocator,
                       const char* tag) {
  if (allocator != nullptr && tag != nullptr && pointer != nullptr && allocator->free != nullptr) {
    allocator->free(pointer, VTA_MEM_TAG(tag), 0);
  }
}

// The passes run on natural layouts: row solves along the data's rows, column solves down its
// columns with the vertical couplings kept untransposed (coupling of rows y and y + 1 at (y, x)),
// so no transposition is needed; each line sees the same values as in DREF_FGS_filter.
void FGSFilter(const uint8_t* mask, float* data, const uint8_t* guide, uint32_t guideFormat,
               int height, int width, int iterations, int channels, void* pool, int threadCount,
               const vta_algo_mem_allocator_t* allocator, float sigma, float lambda) {
  using namespace bivista;
  const double lambda1d = static_cast<double>(lambda) * 1.5 * pow(4.0, iterations - 1) /
                          (pow(4.0, iterations) - 1.0);
  const float lambda1 = static_cast<float>(lambda1d);
  const int64_t area = static_cast<int64_t>(height) * width;
  const size_t sizes[6] = {Bytes(area, sizeof(float)),    Bytes(area, sizeof(float)),
                           Bytes(area, channels),         Bytes(area, sizeof(float)),
                           Bytes(area, 1),                Bytes(threadCount, sizeof(DREF_FGSThreadParam))};
  // Without a table (or its allocate entry) every request counts as failed.
  void* buffers[6] = {};
  if (allocator != nullptr && allocator->malloc != nullptr) {
    for (int k = 0; k < 6; ++k) buffers[k] = allocator->malloc(sizes[k], VTA_MEM_TAG(kTag), 0);
  }
  bool complete = true;
  for (void* b : buffers) complete = complete && b != nullptr;
  if (!complete) {
    BV_LOGE(kTagAlgo, kFGSFilter, kLineAllocFailure, "memory alloc failure");
    for (void* b : buffers) fgs_safeDeleteMem(b, allocator, kTag);
    return;
  }
  float* hW = static_cast<float*>(buffers[0]);
  float* vW = static_cast<float*>(buffers[1]);
  uint8_t* tGuide = static_cast<uint8_t*>(buffers[2]);
  float* scratch = static_cast<float*>(buffers[3]);
  DREF_FGSThreadParam* records = static_cast<DREF_FGSThreadParam*>(buffers[5]);
  BV_LOGI(kTagAlgo, kFGSFilter, kLineEnter,
          "enter smooth filter!!paras: lamda,sigma,iter,nchannle = %3.2f(%3.2f), %3.2f %d, %d",
          static_cast<double>(lambda), static_cast<double>(lambda1), static_cast<double>(sigma),
          iterations, channels);

  if (height > 0 && width > 0) {
    float table[256];
    BuildTable(sigma, lambda1, table);
    AuxJob aux = {guide, mask, hW, vW, table, width, height, 0, height, kAuxAdapt, false};
    if (guideFormat == 0 && channels == 3) {
      aux.work |= kAuxBuild;
    } else if (guideFormat == 0) {
      // Vertical couplings of the transposed guide, built as written, then turned upright.
      GuideWeightsInterleaved(hW, guide, height, width, channels, table);
      RotateGuideInto(tGuide, static_cast<int64_t>(sizes[2]), guide, height, width);
      GuideWeightsInterleaved(scratch, tGuide, width, height, channels, table);
      DREF_Rotate_1D_FLOAT(vW, scratch, width, height);
    } else {
      GuideWeightsPlanar(hW, guide, height, width, channels, table);
      for (int p = 0; p < channels; ++p) {
        DREF_Rotate_1D_UCHAR(tGuide + p * area, guide + p * area, height, width);
      }
      GuideWeightsPlanar(scratch, tGuide, width, height, channels, table);
      DREF_Rotate_1D_FLOAT(vW, scratch, width, height);
    }
    aux.maskClear = AllClear(mask, area);
    if (TeamRuns(pool, threadCount)) {
      RunTeam(aux, data, scratch, iterations, pool, pool != nullptr ? threadCount : 1);
    } else {
      // A pool short of workers: a boot-and-sync round per pass, the refused workers' lines
      // unsolved, as the split rule gives.
      RunAux(aux, pool, threadCount);
      for (int it = 0; it < iterations; ++it) {
        SplitAndRun(data, hW, scratch, height, width, records, pool, threadCount, SolveRowsJob);
        SplitAndRun(data, vW, scratch, width, height, records, pool, threadCount,
                    SolveColumnsJob);
        if (it + 1 < iterations) {
          aux.work = kAuxDecay;
          RunAux(aux, pool, threadCount);
        }
      }
    }
  }
  for (void* b : buffers) fgs_safeDeleteMem(b, allocator, kTag);
}
