// Buffers for alignment sweeps: bytes placed at every offset from an aligned start, and bytes
// that end exactly at an unreadable page, so that a kernel reading past its last byte faults.
#ifndef BIVISTA_TESTS_SUPPORT_EDGE_BUFFER_H
#define BIVISTA_TESTS_SUPPORT_EDGE_BUFFER_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

namespace bvtest {

// Vector sizes up to 64 bytes, plus one: every offset a kernel's head and tail can meet.
constexpr int kMaxVectorBytes = 64;

// `size` usable bytes starting at `offset` past a 64-byte aligned address (AtStart), or ending
// at the first byte of a PROT_NONE page (AtPageEnd).
class EdgeBuffer {
 public:
  EdgeBuffer(size_t size, bool atPageEnd, size_t offset = 0) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t span = (size + offset + kMaxVectorBytes + page - 1) / page * page;
    len_ = span + page;
    void* m = mmap(nullptr, len_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    base_ = m == MAP_FAILED ? nullptr : static_cast<uint8_t*>(m);
    if (base_ == nullptr) return;
    mprotect(base_ + span, page, PROT_NONE);
    data_ = atPageEnd ? base_ + span - size : base_ + offset;
  }
  ~EdgeBuffer() {
    if (base_ != nullptr) munmap(base_, len_);
  }
  EdgeBuffer(const EdgeBuffer&) = delete;
  EdgeBuffer& operator=(const EdgeBuffer&) = delete;
  uint8_t* data() const { return data_; }

 private:
  uint8_t* base_ = nullptr;
  uint8_t* data_ = nullptr;
  size_t len_ = 0;
};

}  // namespace bvtest

#endif
