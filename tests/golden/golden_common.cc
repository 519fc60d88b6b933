// Golden cases of the runtime services (logger, checked allocation, 2D arrays, bump allocator),
// the bounds-checked routines and the XML helpers. The timing probes are left out: their output
// is the clock.
#include <stdio.h>
#include <stdlib.h>

#include "bivista/boundscheck.h"
#include "bivista/mem_services.h"
#include "bivista/xelma_log.h"
#include "bivista/xml_helper.h"
#include "golden/golden.h"

namespace {

using bvgolden::Sink;
}  // namespace

BVGOLDEN_CASES(common) {
  cases.Add("log_and_memory", [](Sink& s) {
    s.Value(Xelma_Print(4, "ZR481_ALGO", "[%s.%-4d] %d %s %.3f", "golden", 7, -12, "text", 2.5));
    s.Value(safeNew(0) == nullptr);
    s.Value(safeNew(-5) == nullptr);
    void* p = safeNew(40);
    s.Value(p != nullptr);
    safeDelete(p);
    safeDelete(nullptr);
    p = packed_SafeNew(-1);
    s.Value(p == nullptr);
    packed_SafeDelete(packed_SafeNew(8));
    // packed_FXN_malloc and packed_FXN_free log their own timing: left out.
    const vta_algo_mem_allocator_t saved = g_memFxn;
    update_globalMemFxn(&bvgolden::kHeap);
    g_memFxn = saved;
    float** f = float2D(3, 5);
    for (int r = 0; r < 3; ++r)
      for (int c = 0; c < 5; ++c) f[r][c] = float(r * 5 + c) * 0.5f;
    s.Values(f[0], 15);
    s.Value(f[2] - f[0]);
    float2D_release(f);
    int** i2 = int2D(2, 3);
    short** s2 = short2D(4, 1);
    unsigned char** u2 = uchar2D(1, 7);
    s.Value(i2[1] - i2[0]), s.Value(s2[3] - s2[0]), s.Value(u2[0] != nullptr);
    int2D_release(i2), short2D_release(s2), uchar2D_release(u2);
    int2D_release(nullptr), short2D_release(nullptr), uchar2D_release(nullptr);
    s.Value(float2D(-1, 3) == nullptr);
    unsigned char block[64];
    MemoryManager m{64, 0, block, block};
    for (int n : {10, 30, 30, 0, 23, 100}) {
      unsigned char* a = static_cast<unsigned char*>(mAllocate(&m, n));
      s.Value(a == nullptr ? -1 : a - block);
      s.Value(m.free), s.Value(m.used), s.Value(m.current - block);
    }
    mFree(&m, 20);
    s.Value(m.free), s.Value(m.used);
    mFree(&m, 1000);
    s.Value(m.free), s.Value(m.used);
    mFreeAll(&m);
    s.Value(m.free), s.Value(m.used), s.Value(m.current - block);
    for (const char* path : {"/data/x.yuv", "./x", "/a/../b", "a.b/c", "/x/.hidden"}) {
      s.Value(IsRelativePath(path));
    }
  });

  cases.Add("boundscheck", [](Sink& s) {
    char d[16];
    auto reset = [&] { memset(d, '#', sizeof d); };
    const char* text = "golden digest";
    reset(), s.Value(memcpy_s(d, 16, text, 13)), s.Bytes(d, 16);
    reset(), s.Value(memcpy_s(d, 8, text, 13)), s.Bytes(d, 16);
    reset(), s.Value(memcpy_s(nullptr, 8, text, 3)), s.Bytes(d, 16);
    reset(), s.Value(memcpy_s(d + 2, 10, d, 6)), s.Bytes(d, 16);
    reset(), s.Value(memmove_s(d + 2, 10, d, 6)), s.Bytes(d, 16);
    reset(), s.Value(memset_s(d, 16, 'z', 20)), s.Bytes(d, 16);
    reset(), s.Value(memset_s(d, 16, 'z', 5)), s.Bytes(d, 16);
    reset(), s.Value(strcpy_s(d, 16, text)), s.Bytes(d, 16);
    reset(), s.Value(strcpy_s(d, 5, text)), s.Bytes(d, 16);
    reset(), s.Value(strncpy_s(d, 16, text, 4)), s.Bytes(d, 16);
    reset(), s.Value(strncpy_s(d, 4, text, 4)), s.Bytes(d, 16);
    strcpy_s(d, 16, "ab");
    s.Value(strcat_s(d, 16, "cdef")), s.Bytes(d, 16);
    s.Value(strcat_s(d, 8, "ghijkl")), s.Bytes(d, 16);
    strcpy_s(d, 16, "ab");
    s.Value(strncat_s(d, 16, "cdefgh", 3)), s.Bytes(d, 16);
    s.Value(strcat_s(d, 16, nullptr)), s.Bytes(d, 16);
    char tok[] = "a,b;;c,,d";
    rsize_t left = sizeof tok;
    char* state = nullptr;
    for (char* t = strtok_s(tok, &left, ",;", &state); t != nullptr;
         t = strtok_s(nullptr, &left, ",;", &state)) {
      s.Text(t);
      s.Value(static_cast<uint64_t>(left));
    }
    s.Value(strtok_s(nullptr, nullptr, ",", &state) == nullptr);
    reset(), s.Value(sprintf_s(d, 16, "%d-%s-%x", -42, "ab", 255)), s.Bytes(d, 16);
    reset(), s.Value(sprintf_s(d, 4, "%d", 123456)), s.Bytes(d, 16);
    reset(), s.Value(snprintf_s(d, 6, "%s", "truncated")), s.Bytes(d, 16);
    reset(), s.Value(snprintf_s(d, 0, "x")), s.Bytes(d, 16);
    reset(), s.Value(sprintf_s(d, 16, "%n", nullptr)), s.Bytes(d, 16);
    int a = -1;
    char word[8];
    memset(word, '#', sizeof word);
    s.Value(sscanf_s("17 golden", "%d %s", &a, word, rsize_t(8)));
    s.Value(a), s.Bytes(word, 8);
    memset(word, '#', sizeof word);
    s.Value(sscanf_s("17 toolongword", "%d %s", &a, word, rsize_t(4)));
    s.Bytes(word, 8);
    s.Value(sscanf_s("x", "%n", &a));
  });

  cases.Add("xml", [](Sink& s) {
    const std::string path = bvgolden::TempDir() + "/calib.xml";
    tinyxml2::XMLDocument doc;
    s.Value(Bivista_XmlLoadFile(&doc, path.c_str()));
    s.Value(Bivista_XmlLoadFile(nullptr, path.c_str()));
    tinyxml2::XMLElement* root = doc.NewElement("calibration");
    root->SetAttribute("width", 4000);
    root->SetAttribute("scale", 0.25);
    doc.InsertEndChild(root);
    s.Value(Bivista_XmlSaveFile(&doc, path.c_str()));
    s.Value(Bivista_XmlSaveFile(&doc, (bvgolden::TempDir() + "/none/x.xml").c_str()));
    tinyxml2::XMLDocument back;
    s.Value(Bivista_XmlLoadFile(&back, path.c_str()));
    tinyxml2::XMLPrinter printer;
    back.Print(&printer);
    s.Text(printer.CStr());
    FILE* f = fopen(path.c_str(), "w");
    fputs("<a><b></a>", f);
    fclose(f);
    s.Value(Bivista_XmlLoadFile(&back, path.c_str()));
  });
}
