#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "bivista/xml_helper.h"
#include "support/platform_capture.h"
#include "xml/xml_internal.h"

namespace {

using tinyxml2::XMLDocument;

// The one line logged since the last call, if it is an error under the library tag.
std::string OneError(bvtest::LogCapture& log) {
  const auto l = log.Lines();
  log.Clear();
  return l.size() == 1 && l[0].priority == 6 && l[0].tag == "ZR481_ALGO" ? l[0].text
                                                                          : std::to_string(l.size()) + " lines";
}

TEST(Xml, LoadSaveAndRefusals) {
  char tmpl[] = "/tmp/bivista_xml_XXXXXX";
  ASSERT_NE(mkdtemp(tmpl), nullptr);
  const std::string dir = tmpl, good = dir + "/good.xml", bad = dir + "/bad.xml", out = dir + "/out.xml";
  const auto write = [](const std::string& p, const char* text) {
    FILE* f = fopen(p.c_str(), "w");
    fputs(text, f);
    fclose(f);
  };
  // A save and load that succeed are pinned by the golden digests; here every refusal's code and line.
  bvtest::LogCapture log;
  XMLDocument doc, back;
  write(good, "<calib/>");
  back.Parse("<calib><cam id=\"2\">text</cam></calib>");  // something to write
  // {result, contents written to bad.xml first (null: none), path, document}
  const std::string missing = dir + "/missing.xml";
  const struct { int code; const char* text; const char* path; XMLDocument* d; } loads[] = {
      {tinyxml2::XML_ERROR_MISMATCHED_ELEMENT, "<calib><cam></calib>", bad.c_str(), &doc},
      {tinyxml2::XML_ERROR_EMPTY_DOCUMENT, "", bad.c_str(), &doc},
      {tinyxml2::XML_ERROR_FILE_NOT_FOUND, nullptr, missing.c_str(), &doc},
      {tinyxml2::XML_ERROR_FILE_COULD_NOT_BE_OPENED, nullptr, nullptr, &doc},
      {tinyxml2::XML_ERROR_FILE_COULD_NOT_BE_OPENED, nullptr, good.c_str(), nullptr}};
  for (const auto& c : loads) {
    if (c.text) write(bad, c.text);
    EXPECT_EQ(Bivista_XmlLoadFile(c.d, c.path), c.code);
    EXPECT_EQ(OneError(log), bvtest::Msg("Bivista_XmlLoadFile", bivista::kLineXmlLoad,
                                         "xml loadFile ecode " + std::to_string(c.code)));
  }
  // Missing directory, a directory, null document or path, and an open that cannot write.
  const std::string nodir = dir + "/no/such.xml";
  const struct { const char* path; XMLDocument* d; } saves[] = {
      {nodir.c_str(), &back}, {tmpl, &back}, {out.c_str(), nullptr}, {nullptr, &back},
      {access("/dev/full", W_OK) == 0 ? "/dev/full" : nullptr, &back}};
  for (const auto& c : saves) {
    EXPECT_EQ(Bivista_XmlSaveFile(c.d, c.path), tinyxml2::XML_ERROR_FILE_COULD_NOT_BE_OPENED);
    EXPECT_EQ(OneError(log), bvtest::Msg("Bivista_XmlSaveFile", bivista::kLineXmlSave, "xml saveFIle ecode =4"));
  }
  for (const std::string& p : {good, bad, out}) unlink(p.c_str());
  rmdir(tmpl);
}

}  // namespace
