#include "bivista/gaussblur.h"

#include <math.h>
#include <string.h>

#include <algorithm>
#include <atomic>

#include "bivista/mem_services.h"
#include "bivista/mthread.h"
#include "common/alloc_size.h"
#include "common/log_internal.h"
#include "gaussblur/gaussblur_internal.h"
#include "gaussblur/gaussblur_kernels.h"
#include "mthread/handoff.h"

using bivista::kTagAlgo;

namespace bivista {

void (*gaussShareHook)(int participant) = nullptr;

namespace {

// gaussian_blur
constexpr int kLineStride = 2788;
constexpr int kLineNullImage = 2793;
constexpr int kLineNoPool = 2799;
constexpr int kLineSingleThread = 2804;
constexpr int kLineTooManyThreads = 2809;
constexpr int kLineKLength = 2815;
constexpr int kLineSigma = 2820;
constexpr int kLineSigmaMismatch = 2825;
constexpr int kLineKernelError = 2831;
constexpr int kLineNotSupport9 = 2846;
constexpr int kLineNotSupport11 = 2850;
constexpr int kLineNotSupport13 = 2854;
constexpr int kLineBlurError = 2861;
// get_gaussian_kernel
constexpr int kLineKernelBadParam = 2880;
constexpr int kLineKernelMalloc = 2886;

constexpr int kMaxKLength = 13;
constexpr int kLine = 64;  // cache line bytes

// Messages and source lines of one kernel size; the texts differ between sizes.
struct PathText {
  int radius;
  const char* path;
  const char* caller;
  const char* body;
  const char* headTail;
  int lineZero;  // worker: no threads
  int lineBodySmall;
  int lineBodyBuf;
  int lineHeadSmall;
  int lineHeadBuf;
  int lineAllocHeadTail;
  int lineAllocScratch;
  int lineErrorIn;
  int lineBadArgs;  // null image or kernel
  int lineFewWorkers;
  int lineManyThreads;
  const char* bufFormat;
  const char* scratchFormat;
  const char* errorInFormat;
};

// 3x3
constexpr int kLine3Zero = 321;
constexpr int kLine3BodySmall = 163;
constexpr int kLine3BodyBuf = 171;
constexpr int kLine3HeadSmall = 363;
constexpr int kLine3HeadBuf = 372;
constexpr int kLine3AllocHeadTail = 530;
constexpr int kLine3AllocScratch = 600;
constexpr int kLine3ErrorIn = 643;
constexpr int kLine3BadArgs = 512;
constexpr int kLine3FewWorkers = 517;
constexpr int kLine3ManyThreads = 522;
// 5x5
constexpr int kLine5Zero = 1161;
constexpr int kLine5BodySmall = 709;
constexpr int kLine5BodyBuf = 718;
constexpr int kLine5HeadSmall = 1204;
constexpr int kLine5HeadBuf = 1213;
constexpr int kLine5AllocHeadTail = 1438;
constexpr int kLine5AllocScratch = 1508;
constexpr int kLine5ErrorIn = 1551;
constexpr int kLine5BadArgs = 1420;
constexpr int kLine5FewWorkers = 1425;
constexpr int kLine5ManyThreads = 1430;
// 7x7
constexpr int kLine7Zero = 2265;
constexpr int kLine7BodySmall = 1630;
constexpr int kLine7BodyBuf = 1640;
constexpr int kLine7HeadSmall = 2312;
constexpr int kLine7HeadBuf = 2321;
constexpr int kLine7AllocHeadTail = 2632;
constexpr int kLine7AllocScratch = 2703;
constexpr int kLine7ErrorIn = 2753;
constexpr int kLine7BadArgs = 2614;
constexpr int kLine7FewWorkers = 2619;
constexpr int kLine7ManyThreads = 2624;

// clang-format off
constexpr PathText kText3 = {
    1, "GaussianBlur3x3_u8_optimization_multithread", "GaussianBlur3x3_u8_optimization_Body_Caller",
    "GaussianBlur3x3_u8_optimization_multithread_body",
    "GaussianBlur3x3_u8_optimization_multithread_head_tail",
    kLine3Zero, kLine3BodySmall, kLine3BodyBuf, kLine3HeadSmall, kLine3HeadBuf,
    kLine3AllocHeadTail, kLine3AllocScratch, kLine3ErrorIn, kLine3BadArgs, kLine3FewWorkers,
    kLine3ManyThreads,
    "[%s.%-4d] input parameters error!pBuf_3x3[%p]\n",
    "[%s.%-4d] Malloc pTmp fail %s\n",
    "[%s.%-4d] GaussianBlur3x3_u8_optimization error in %s\n"};
constexpr PathText kText5 = {
    2, "GaussianBlur5x5_u8_optimization_multithread", "GaussianBlur5x5_u8_optimization_Body_Caller",
    "GaussianBlur5x5_u8_optimization_multithread_body",
    "GaussianBlur5x5_u8_optimization_multithread_head_tail",
    kLine5Zero, kLine5BodySmall, kLine5BodyBuf, kLine5HeadSmall, kLine5HeadBuf,
    kLine5AllocHeadTail, kLine5AllocScratch, kLine5ErrorIn, kLine5BadArgs, kLine5FewWorkers,
    kLine5ManyThreads,
    "[%s.%-4d] input parameters error!pBuf_5x5[%p]\n",
    "[%s.%-4d] Malloc pTmp fail %s\n",
    "[%s.%-4d] GaussianBlur5x5_u8_optimization error in %s\n"};
constexpr PathText kText7 = {
    3, "GaussianBlur7x7_u8_optimization_multithread", "GaussianBlur7x7_u8_optimization_Body_Caller",
    "GaussianBlur7x7_u8_optimization_multithread_body",
    "GaussianBlur7x7_u8_optimization_multithread_head_tail",
    kLine7Zero, kLine7BodySmall, kLine7BodyBuf, kLine7HeadSmall, kLine7HeadBuf,
    kLine7AllocHeadTail, kLine7AllocScratch, kLine7ErrorIn, kLine7BadArgs, kLine7FewWorkers,
    kLine7ManyThreads,
    "[%s.%-4d] input parameters error!pBuf_7x7[%p]\n",
    "[%s.%-4d] Malloc p_self_malloc_Buffer_1 fail %s\n",
    "[%s.%-4d] GaussianBlur7x7_u8_optimization error in %s\n"};
// clang-format on

void CopyRow(const uint8_t* src, uint8_t* dst, int width) {
  if (src != dst && width > 0) memcpy(dst, src, static_cast<size_t>(width));
}

// rows rows of a block at stride, width bytes each: the last image row may end at its width.
void CopyBlock(const uint8_t* src, uint8_t* dst, int rows, int stride, int width) {
  for (int i = 0; i < rows; ++i) {
    CopyRow(src + static_cast<long>(i) * stride, dst + static_cast<long>(i) * stride, width);
  }
}

// Rows of one worker's strip: [first, first + count) counted from the first interior row.
void StripOf(const GaussJob& job, int t, int* first, int* count) {
  const int per = job.rows / job.thNum;
  *first = t * per;
  *count = t == job.thNum - 1 ? job.rows - (job.thNum - 1) * per : per;
}

// The source row of interior index i for worker t: rows outside its strip come from the
// boundary blocks, which in place are copies taken before any worker started.
const uint8_t* StripRow(const GaussJob& job, int t, int first, int count, int i) {
  const int r = job.radius;
  if (i < first) return job.bounds[2 * t] + static_cast<long>(i - (first - r)) * job.srcStride;
  if (i >= first + count) {
    return job.bounds[2 * t + 1] + static_cast<long>(i - (first + count)) * job.srcStride;
  }
  return job.src + static_cast<long>(i) * job.srcStride;
}

// Kernel arguments for interior rows [begin, end) with the r rows above and below them.
GaussStripArgs RowsArgs(const GaussJob& job, int begin, int end, const uint8_t* above,
                        const uint8_t* below, uint8_t* scratch) {
  GaussStripArgs a;
  a.above = above;
  a.src = job.src + static_cast<long>(begin) * job.srcStride;
  a.below = below;
  a.srcStride = job.srcStride;
  a.dst = job.dst + static_cast<long>(begin) * job.dstStride;
  a.dstStride = job.dstStride;
  a.count = end - begin;
  a.width = job.width;
  a.scratch = scratch;
  a.scratchStride = job.srcStride;
  a.kernel = job.kernel;
  a.radius = job.radius;
  return a;
}

int Body(const PathText& text, GaussJob& job, int t) {
  int first = 0;
  int count = 0;
  StripOf(job, t, &first, &count);
  const int k = 2 * job.radius + 1;
  if (count <= 0 || job.width < k) {
    for (int i = first; i < first + count; ++i) {
      CopyRow(job.src + static_cast<long>(i) * job.srcStride,
              job.dst + static_cast<long>(i) * job.dstStride, job.width);
    }
    BV_LOGE(kTagAlgo, text.body, text.lineBodySmall,
            "the width or height of the input image is too small, copy source to destination!\n");
    return -1;
  }
  uint8_t* scratch = job.scratch == nullptr
                         ? nullptr
                         : job.scratch + static_cast<long>(t) * job.scratchBlock;
  if (scratch == nullptr) {
    Xelma_Print(XELMA_LOG_ERROR, kTagAlgo, text.bufFormat, text.body, text.lineBodyBuf,
                static_cast<void*>(scratch));
    return -1;
  }
  GaussStrip(RowsArgs(job, first, first + count, StripRow(job, t, first, count, first - job.radius),
                      StripRow(job, t, first, count, first + count), scratch));
  return 0;
}

void* BodyCaller(const PathText& text, void* argument) {
  GaussArg* arg = static_cast<GaussArg*>(argument);
  if (arg == nullptr || arg->job == nullptr) {
    Xelma_Print(XELMA_LOG_ERROR, kTagAlgo, text.bufFormat, text.caller, text.lineZero, argument);
    return nullptr;
  }
  GaussJob& job = *arg->job;
  if (job.thNum <= 0) {
    BV_LOGE(kTagAlgo, text.caller, text.lineZero, "threadNum is zero!!!\n");
    if (job.status != nullptr) job.status[0] = -1;
    return nullptr;
  }
  job.status[arg->index] = Body(text, job, arg->index);
  return nullptr;
}

// Work sharing. When every row is computed from the source alone (not in place, no overlap), a
// row's bytes do not depend on which thread computes it, so the strips are cut into chunks that
// any participant may take: a late worker then leaves no one idle. A participant runs chunks
// downward from a start chunk while it can claim the next one (the row ring goes on from chunk to
// chunk); it starts at the top of its own strip, then in the middle of the longest run of free
// chunks left, so a thief that takes a late worker's rows pays few ring warm-ups (2r rows each).
constexpr int kMaxChunks = 64;    // per strip
constexpr int kMinChunkRows = 8;  // per chunk

struct GaussShare {
  GaussJob* job;
  int chunkRows;
  int chunks[kGaussMaxThreads];
  std::atomic<bool> taken[kGaussMaxThreads][kMaxChunks];
  std::atomic<int> started{0};   // workers in their job
  std::atomic<int> finished{0};  // workers done, their streaming stores fenced
  Waiter allDone;
};

// One participant: the share, its thread index, and the strip and chunk it goes on with.
// The caller also holds the pool until its first chunk is done (see Participate).
struct ShareArg {
  GaussShare* share;
  int index;
  int strip;
  int next;
  void* movePool = nullptr;
};

// Workers still queued after the caller's first chunk are moved off its CPU. By then a worker
// placed well has started (a few microseconds), so the move's system calls are paid only when
// one is needed.
void MoveLateWorkers(ShareArg& a) {
  if (a.movePool == nullptr) return;
  MoveQueuedOff(a.movePool, 0, a.index);
  a.movePool = nullptr;
}

bool Claim(GaussShare& s, int strip, int chunk) {
  std::atomic<bool>& flag = s.taken[strip][chunk];
  return !flag.load(std::memory_order_relaxed) && !flag.exchange(true, std::memory_order_relaxed);
}

bool ClaimNext(void* context) {
  ShareArg& a = *static_cast<ShareArg*>(context);
  MoveLateWorkers(a);
  return a.next < a.share->chunks[a.strip] && Claim(*a.share, a.strip, a.next++);
}

// Chunks of `strip` from `chunk` (claimed) on, in the participant's scratch rows.
void RunFrom(ShareArg& a, int strip, int chunk) {
  const GaussShare& s = *a.share;
  const GaussJob& job = *s.job;
  int first = 0;
  int count = 0;
  StripOf(job, strip, &first, &count);
  const int begin = first + chunk * s.chunkRows;
  const int end = first + count;
  GaussStripArgs run =
      RowsArgs(job, begin, end, job.src + static_cast<long>(begin - job.radius) * job.srcStride,
               job.src + static_cast<long>(end) * job.srcStride,
               job.scratch + static_cast<long>(a.index) * job.scratchBlock);
  run.more = ClaimNext;
  run.context = &a;
  run.chunkRows = s.chunkRows;
  a.strip = strip;
  a.next = chunk + 1;
  GaussStrip(run);
}

// The middle chunk of the longest run of free chunks; false when every chunk is taken.
bool FindFree(const GaussShare& s, int* strip, int* chunk) {
  int longest = 0;
  for (int v = 0; v < s.job->thNum; ++v) {
    for (int c = 0; c < s.chunks[v];) {
      const int from = c;
      while (c < s.chunks[v] && !s.taken[v][c].load(std::memory_order_relaxed)) ++c;
      if (c - from > longest) {
        longest = c - from;
        *strip = v;
        *chunk = from + longest / 2;
      }
      if (c == from) ++c;
    }
  }
  return longest > 0;
}

void Participate(ShareArg& a) {
  GaussShare& s = *a.share;
  if (gaussShareHook != nullptr) gaussShareHook(a.index);
  if (Claim(s, a.index, 0)) RunFrom(a, a.index, 0);
  MoveLateWorkers(a);
  int strip = 0;
  int chunk = 0;
  while (FindFree(s, &strip, &chunk)) {
    if (Claim(s, strip, chunk)) RunFrom(a, strip, chunk);
  }
}

void* ShareJob(void* argument, int) {
  ShareArg& a = *static_cast<ShareArg*>(argument);
  a.share->started.fetch_add(1, std::memory_order_relaxed);
  Participate(a);
  a.share->allDone.Wake([&] { a.share->finished.fetch_add(1, std::memory_order_release); });
  return nullptr;
}

// Whether the chunks may go to any thread: results, messages and status are then those of the
// fixed strips. Every worker must run (the caller takes the last strip), every strip must have
// rows and be blurred (no "too small" copy), and no destination row may be a source row.
bool CanShare(const GaussJob& job, void* pool, const uint8_t* src, const uint8_t* dst, int height) {
  if (job.thNum < 2 || pool == nullptr || job.rows < job.thNum || job.width < 2 * job.radius + 1 ||
      job.scratch == nullptr) {
    return false;
  }
  const MThread_Pool* p = static_cast<const MThread_Pool*>(pool);
  if (p->workers == nullptr || p->count < job.thNum - 1) return false;
  const uintptr_t s = reinterpret_cast<uintptr_t>(src);
  const uintptr_t d = reinterpret_cast<uintptr_t>(dst);
  const uintptr_t sEnd = s + static_cast<uintptr_t>(height - 1) * job.srcStride + job.width;
  const uintptr_t dEnd = d + static_cast<uintptr_t>(height - 1) * job.dstStride + job.width;
  return sEnd <= d || dEnd <= s;
}

// Border rows 0 .. r-1 and height-r .. height-1, on the caller after the workers are done.
// headRows/tailRows: the r interior rows next to each border (copies when in place).
int HeadTail(const PathText& text, const uint8_t* src, uint8_t* dst, int width, int height,
             int srcStride, int dstStride, const uint16_t* kernel, const uint8_t* headRows,
             const uint8_t* tailRows, uint8_t* scratch, int r) {
  const int k = 2 * r + 1;
  if (width < k || height < k) {
    for (int y = 0; y < r && y < height; ++y) {
      CopyRow(src + static_cast<long>(y) * srcStride, dst + static_cast<long>(y) * dstStride,
              width);
    }
    for (int y = height - r > 0 ? height - r : 0; y < height; ++y) {
      CopyRow(src + static_cast<long>(y) * srcStride, dst + static_cast<long>(y) * dstStride,
              width);
    }
    BV_LOGE(kTagAlgo, text.headTail, text.lineHeadSmall,
            "the width or height of the input image is too small, copy source to destination!\n");
    return -1;
  }
  if (scratch == nullptr) {
    Xelma_Print(XELMA_LOG_ERROR, kTagAlgo, text.bufFormat, text.headTail, text.lineHeadBuf,
                static_cast<void*>(scratch));
    return -1;
  }
  const int window = 2 * r;
  GaussBorderArgs b;
  b.width = width;
  b.kernel = kernel;
  b.radius = r;
  for (int j = 0; j < window; ++j) b.h[j] = scratch + static_cast<long>(j) * srcStride;
  // Head: rows 0 .. 2r-1 (the last r of them from headRows), mirrored above row 0.
  for (int j = 0; j < window; ++j) {
    b.src[j] = j < r ? src + static_cast<long>(j) * srcStride
                     : headRows + static_cast<long>(j - r) * srcStride;
  }
  for (int y = 0; y < r; ++y) {
    for (int j = -r; j <= r; ++j) b.map[y][j + r] = static_cast<uint8_t>(y + j < 0 ? -(y + j) : y + j);
    b.dst[y] = dst + static_cast<long>(y) * dstStride;
  }
  GaussBorder(b);
  // Tail: rows height-2r .. height-1 (the first r of them from tailRows), mirrored below.
  const int base = height - window;
  for (int j = 0; j < window; ++j) {
    b.src[j] = j < r ? tailRows + static_cast<long>(j) * srcStride
                     : src + static_cast<long>(base + j) * srcStride;
  }
  for (int o = 0; o < r; ++o) {
    const int y = height - r + o;
    for (int j = -r; j <= r; ++j) {
      const int row = y + j < height ? y + j : 2 * (height - 1) - (y + j);
      b.map[o][j + r] = static_cast<uint8_t>(row - base);
    }
    b.dst[o] = dst + static_cast<long>(y) * dstStride;
  }
  GaussBorder(b);
  return 0;
}

int RunPath(const PathText& text, void* (*worker)(void*, int), const uint8_t* src, uint8_t* dst,
            int width, int height, int srcStride, int dstStride, const uint16_t* kernel, void* pool,
            int thNum, uint8_t* pBuf) {
  const int r = text.radius;
  if (src == nullptr || dst == nullptr || kernel == nullptr) {
    BV_LOGE(kTagAlgo, text.path, text.lineBadArgs,
            "input parameters error!src[%p] dst[%p] kernel[%p]", static_cast<const void*>(src),
            static_cast<void*>(dst), static_cast<const void*>(kernel));
    return -1;
  }
  // Scratch and boundary rows are src_stride bytes and hold width bytes; shorter strides would
  // also make rows overlap.
  if (srcStride < width || dstStride < width) {
    BV_LOGE(kTagAlgo, text.path, text.lineBadArgs,
            "ERROR: src_stride[%d] or dst_stride[%d] is less than width[%d]!!!", srcStride,
            dstStride, width);
    return -1;
  }
  if (thNum > kGaussMaxThreads) {
    BV_LOGE(kTagAlgo, text.path, text.lineManyThreads, "th_num too large! th_num[%d]", thNum);
    return -1;
  }
  if (pool != nullptr && thNum > static_cast<const MThread_Pool*>(pool)->count) {
    BV_LOGE(kTagAlgo, text.path, text.lineFewWorkers,
            "th_pool has %d threads, fewer than th_num[%d]!",
            static_cast<const MThread_Pool*>(pool)->count, thNum);
    return -1;
  }

  int32_t status[kGaussMaxThreads] = {0};
  GaussArg args[kGaussMaxThreads];
  const uint8_t* bounds[2 * kGaussMaxThreads] = {nullptr};
  GaussJob job;
  job.width = width;
  job.rows = height - 2 * r;
  job.srcStride = srcStride;
  job.dstStride = dstStride;
  job.thNum = thNum;
  job.status = status;
  job.kernel = kernel;
  // Rows past the top border are addressed only when the image has them (no pointer is formed
  // past a short image).
  const bool interior = height > 2 * r;
  job.src = interior ? src + static_cast<long>(r) * srcStride : src;
  job.dst = interior ? dst + static_cast<long>(r) * dstStride : dst;
  job.bounds = bounds;
  job.scratch = nullptr;
  job.scratchBlock = static_cast<long>(2 * r) * srcStride;
  job.radius = r;
  if (thNum <= 0) {
    // Nothing to split over: the worker reports it and the call fails untouched.
    GaussArg only = {&job, 0};
    worker(&only, 0);
    Xelma_Print(XELMA_LOG_ERROR, kTagAlgo, text.errorInFormat, text.path, text.lineErrorIn,
                text.path);
    return -1;
  }

  const bool inPlace = src == dst;
  const int window = 2 * r;
  uint8_t* headTail = nullptr;
  uint8_t* ownHeadTail = nullptr;
  const int headTailBytes =
      inPlace ? SafeNewBytes(static_cast<int64_t>(window) * (thNum + 1), srcStride) : 0;
  if (inPlace && headTailBytes < 0) {
    BV_LOGE(kTagAlgo, text.path, text.lineAllocHeadTail, "Malloc thread_head_tail_data fail %s\n",
            text.path);
    return -1;
  }
  if (inPlace) {
    headTail = pBuf;
    if (headTail == nullptr) {
      headTail = ownHeadTail = static_cast<uint8_t*>(safeNew(headTailBytes));
      if (headTail == nullptr) {
        BV_LOGE(kTagAlgo, text.path, text.lineAllocHeadTail,
                "Malloc thread_head_tail_data fail %s\n", text.path);
        return -1;
      }
    }
    memset(headTail, 0, static_cast<size_t>(headTailBytes));
  }
  uint8_t* scratch = nullptr;
  uint8_t* ownScratch = nullptr;
  if (pBuf != nullptr) {
    scratch = pBuf + headTailBytes;
  } else {
    // Own scratch: every thread's rows start on their own cache line, so that two threads never
    // write one line (the ring is rewritten on every row).
    job.scratchBlock = (job.scratchBlock + kLine - 1) / kLine * kLine;
    const int64_t own = static_cast<int64_t>(job.scratchBlock) * thNum + kLine;
    ownScratch = static_cast<uint8_t*>(safeNew(SafeNewBytes(own)));
    scratch = ownScratch == nullptr
                  ? nullptr
                  : ownScratch + ((kLine - reinterpret_cast<uintptr_t>(ownScratch) % kLine) % kLine);
    if (scratch == nullptr) {
      Xelma_Print(XELMA_LOG_ERROR, kTagAlgo, text.scratchFormat, text.path, text.lineAllocScratch,
                  text.path);
      safeDelete(ownHeadTail);
      return -1;
    }
  }
  job.scratch = scratch;

  // Boundary blocks of every strip; in place they are copied before any worker starts.
  const uint8_t* headRows = interior ? src + static_cast<long>(r) * srcStride : src;
  const uint8_t* tailRows = interior ? src + static_cast<long>(height - window) * srcStride : src;
  for (int t = 0; t < thNum; ++t) {
    int first = 0;
    int count = 0;
    StripOf(job, t, &first, &count);
    if (count <= 0) continue;  // the worker only reports its empty strip
    const uint8_t* above = job.src + static_cast<long>(first - r) * srcStride;
    const uint8_t* below = job.src + static_cast<long>(first + count) * srcStride;
    if (inPlace) {
      uint8_t* copy = headTail + static_cast<long>(t) * window * srcStride;
      CopyBlock(above, copy, r, srcStride, width);
      CopyBlock(below, copy + static_cast<long>(r) * srcStride, r, srcStride, width);
      bounds[2 * t] = copy;
      bounds[2 * t + 1] = copy + static_cast<long>(r) * srcStride;
    } else {
      bounds[2 * t] = above;
      bounds[2 * t + 1] = below;
    }
  }
  if (inPlace) {
    uint8_t* copy = headTail + static_cast<long>(thNum) * window * srcStride;
    if (interior) {
      CopyBlock(headRows, copy, r, srcStride, width);
      CopyBlock(tailRows, copy + static_cast<long>(r) * srcStride, r, srcStride, width);
    }
    headRows = copy;
    tailRows = copy + static_cast<long>(r) * srcStride;
  }

  // The caller does the last strip itself rather than idle while a woken worker does it. The
  // border rows follow the sync, so that their messages come after every strip's.
  const int last = thNum - 1;
  if (CanShare(job, pool, src, dst, height)) {
    GaussShare share;
    share.job = &job;
    int lastFirst = 0;
    int lastCount = 0;
    StripOf(job, last, &lastFirst, &lastCount);  // the longest strip
    share.chunkRows = std::max(kMinChunkRows, (lastCount + kMaxChunks - 1) / kMaxChunks);
    ShareArg parts[kGaussMaxThreads];
    for (int t = 0; t < thNum; ++t) {
      int first = 0;
      int count = 0;
      StripOf(job, t, &first, &count);
      share.chunks[t] = (count + share.chunkRows - 1) / share.chunkRows;
      for (int c = 0; c < share.chunks[t]; ++c) {
        share.taken[t][c].store(false, std::memory_order_relaxed);
      }
      parts[t] = {&share, t, t, 0};
    }
    int booted = 0;
    for (int t = 0; t < last; ++t) {
      if (MThread_Boot(pool, t, ShareJob, &parts[t]) == 0) {
        ++booted;
      } else {
        status[t] = -1;
      }
    }
    if (booted > 0) parts[last].movePool = pool;
    Participate(parts[last]);
    // Started workers are about to end their last chunks: wait for them briefly rather than
    // sleep in the sync, whose wake-up costs more than a chunk. A worker not yet started may
    // need the caller's core (the machine may be loaded): sleep at once.
    if (share.started.load(std::memory_order_relaxed) == booted) {
      share.allDone.WaitFor(
          [&] { return share.finished.load(std::memory_order_acquire) == booted; });
    }
    MThread_Sync(pool, 0, last);
  } else {
    for (int t = 0; t < thNum; ++t) {
      args[t].job = &job;
      args[t].index = t;
      if (t < last && MThread_Boot(pool, t, worker, &args[t]) != 0) status[t] = -1;
    }
    MoveQueuedOff(pool, 0, last);
    worker(&args[last], last);
    MThread_Sync(pool, 0, last);
  }
  const int edge = HeadTail(text, src, dst, width, height, srcStride, dstStride, kernel, headRows,
                            tailRows, scratch, r);

  safeDelete(ownScratch);
  safeDelete(ownHeadTail);
  bool failed = edge != 0;
  for (int t = 0; t < thNum; ++t) failed = failed || status[t] != 0;
  if (failed) {
    Xelma_Print(XELMA_LOG_ERROR, kTagAlgo, text.errorInFormat, text.path, text.lineErrorIn,
                text.path);
    return -1;
  }
  return 0;
}

}  // namespace

int get_gaussian_kernel(int n, uint16_t* kernel, float sigma) {
  const char* const fn = "get_gaussian_kernel";
  if (n % 2 == 0 || kernel == nullptr) {
    BV_LOGE(kTagAlgo, fn, kLineKernelBadParam, "%s Bad Parameter n[%d] kernel[%p] !!", fn, n,
            static_cast<void*>(kernel));
    return -1;
  }
  float* cf = static_cast<float*>(safeNew(n * static_cast<int>(sizeof(float))));
  if (cf == nullptr) {
    BV_LOGE(kTagAlgo, fn, kLineKernelMalloc, "cf Malloc failed!\n");
    return -1;
  }
  static const float kFixed1[] = {1.f};
  static const float kFixed3[] = {0.25f, 0.5f, 0.25f};
  static const float kFixed5[] = {0.0625f, 0.25f, 0.375f, 0.25f, 0.0625f};
  static const float kFixed7[] = {0.03125f, 0.109375f, 0.21875f, 0.28125f,
                                  0.21875f, 0.109375f, 0.03125f};
  static const float* const kFixed[] = {kFixed1, kFixed3, kFixed5, kFixed7};
  if (n < 8 && sigma <= 0) {
    memcpy(cf, kFixed[n / 2], static_cast<size_t>(n) * sizeof(float));
  } else {
    const double s = sigma > 0 ? sigma : ((n - 1) * 0.5 - 1) * 0.3 + 0.8;
    const double scale = -0.5 / (s * s);
    double sum = 0;
    for (int i = 0; i < n; ++i) {
      const double x = i - (n - 1) / 2;
      cf[i] = static_cast<float>(exp(scale * x * x));
      sum += cf[i];
    }
    const double inv = 1.0 / sum;
    for (int i = 0; i < n; ++i) cf[i] = static_cast<float>(cf[i] * inv);
  }
  int total = 0;
  for (int i = 0; i < n; ++i) {
    kernel[i] = static_cast<uint16_t>(static_cast<int>(static_cast<double>(cf[i] * 256.0f) + 0.5));
    total += kernel[i];
  }
  if (total != 256) {
    // The correction is taken as a signed 8-bit value on purpose.
    kernel[n / 2] = static_cast<uint16_t>(kernel[n / 2] +
                                          static_cast<int8_t>(static_cast<uint8_t>(256 - total)));
  }
  safeDelete(cf);
  return 0;
}

}  // namespace bivista

using bivista::kText3;
using bivista::kText5;
using bivista::kText7;

void* GaussianBlur3x3_u8_optimization_Body_Caller(void* argument, int threadIndex) {
  return bivista::BodyCaller(kText3, argument);
}

void* GaussianBlur5x5_u8_optimization_Body_Caller(void* argument, int threadIndex) {
  return bivista::BodyCaller(kText5, argument);
}

void* GaussianBlur7x7_u8_optimization_Body_Caller(void* argument, int threadIndex) {
  return bivista::BodyCaller(kText7, argument);
}

extern "C" {

int GaussianBlur3x3_u8_optimization_multithread(const uint8_t* src, uint8_t* dst, int width,
                                                int height, int src_stride, int dst_stride,
                                                const uint16_t* kernel, void* th_pool, int th_num,
                                                uint8_t* pBuf) {
  return bivista::RunPath(kText3, GaussianBlur3x3_u8_optimization_Body_Caller, src, dst, width,
                          height, src_stride, dst_stride, kernel, th_pool, th_num, pBuf);
}

int GaussianBlur5x5_u8_optimization_multithread(const uint8_t* src, uint8_t* dst, int width,
                                                int height, int src_stride, int dst_stride,
                                                const uint16_t* kernel, void* th_pool, int th_num,
                                                uint8_t* pBuf) {
  return bivista::RunPath(kText5, GaussianBlur5x5_u8_optimization_Body_Caller, src, dst, width,
                          height, src_stride, dst_stride, kernel, th_pool, th_num, pBuf);
}

int GaussianBlur7x7_u8_optimization_multithread(const uint8_t* src, uint8_t* dst, int width,
                                                int height, int src_stride, int dst_stride,
                                                const uint16_t* kernel, void* th_pool, int th_num,
                                                uint8_t* pBuf) {
  return bivista::RunPath(kText7, GaussianBlur7x7_u8_optimization_Body_Caller, src, dst, width,
                          height, src_stride, dst_stride, kernel, th_pool, th_num, pBuf);
}

}  // extern "C"

int gaussian_blur(const uint8_t* src, uint8_t* dst, int width, int height, int src_stride,
                  int dst_stride, int k_length, float sigma, void* th_pool, int th_num,
                  uint8_t* pBuf) {
  using namespace bivista;
  const char* const fn = "gaussian_blur";
  if (src_stride < width || dst_stride < width) {
    BV_LOGE(kTagAlgo, fn, kLineStride,
            "ERROR: src_stride[%d] or dst_stride[%d] is less than width[%d]!!!", src_stride,
            dst_stride, width);
    return -1;
  }
  if (src == nullptr || dst == nullptr) {
    BV_LOGE(kTagAlgo, fn, kLineNullImage, "ERROR: org_Img[%p] or blur_img[%p] is NULL!!!",
            static_cast<const void*>(src), static_cast<void*>(dst));
    return -1;
  }
  if (th_pool == nullptr) {
    if (th_num != 1) {
      BV_LOGE(kTagAlgo, fn, kLineNoPool,
              "if th_pool is NULL, program will be executed in single thread!");
      return -1;
    }
    BV_LOGW(kTagAlgo, fn, kLineSingleThread,
            "program will be executed in single thread!!! th_num[%d]", th_num);
  } else if (th_num > 4) {
    BV_LOGE(kTagAlgo, fn, kLineTooManyThreads, "th_num too large! th_num[%d]", th_num);
    return -1;
  }
  if (k_length % 2 == 0 || k_length < 3 || k_length > kMaxKLength) {
    BV_LOGE(kTagAlgo, fn, kLineKLength, "ATTENTION: k_length is wrong!k_length[%d]", k_length);
    return -1;
  }
  if (!(sigma > 0)) {  // NaN too: it would reach the kernel's integer conversion
    BV_LOGE(kTagAlgo, fn, kLineSigma, "ATTENTION: sigma is wrong!sigma[%f]",
            static_cast<double>(sigma));
    return -1;
  }
  if (6.0f * sigma + 1.0f > static_cast<float>(k_length)) {
    BV_LOGW(kTagAlgo, fn, kLineSigmaMismatch,
            "ATTENTION: sigma doesn't match with k_length!sigma[%f], k_length[%d]",
            static_cast<double>(sigma), k_length);
  }
  uint16_t kernel[kMaxKLength];
  if (get_gaussian_kernel(k_length, kernel, sigma) != 0) {
    BV_LOGE(kTagAlgo, fn, kLineKernelError, "%s error!!!\n", "get_gaussian_kernel");
    return -1;
  }
  int result = -1;
  const char* failed = fn;
  switch (k_length) {
    case 3:
      failed = kText3.path;
      result = GaussianBlur3x3_u8_optimization_multithread(
          src, dst, width, height, src_stride, dst_stride, kernel, th_pool, th_num, pBuf);
      break;
    case 5:
      failed = kText5.path;
      result = GaussianBlur5x5_u8_optimization_multithread(
          src, dst, width, height, src_stride, dst_stride, kernel, th_pool, th_num, pBuf);
      break;
    case 7:
      failed = kText7.path;
      result = GaussianBlur7x7_u8_optimization_multithread(
          src, dst, width, height, src_stride, dst_stride, kernel, th_pool, th_num, pBuf);
      break;
    case 9:
      BV_LOGE(kTagAlgo, fn, kLineNotSupport9,
              "not support parameter in %s k_length[%d] for now, To be done.", fn, k_length);
      break;
    case 11:
    case 13:
      BV_LOGE(kTagAlgo, fn, k_length == 11 ? kLineNotSupport11 : kLineNotSupport13,
              "not support parameter in %s, k_length[%d] for now, To be done.", fn, k_length);
      break;
  }
  if (result != 0) {
    BV_LOGE(kTagAlgo, fn, kLineBlurError, "%s error!, k_length[%d]", failed, k_length);
    return -1;
  }
  return 0;
}

int gaussian_blur(const uint8_t* src, uint8_t* dst, int width, int height, int k_length,
                  float sigma, void* th_pool, int th_num, uint8_t* pBuf) {
  return gaussian_blur(src, dst, width, height, width, width, k_length, sigma, th_pool, th_num,
                       pBuf);
}
