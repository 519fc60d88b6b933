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

class XmlFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/bivista_xml_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
  }
  void TearDown() override {
    for (const char* f : {"good.xml", "bad.xml", "out.xml"}) unlink(Path(f).c_str());
    rmdir(dir_.c_str());
  }
  std::string Path(const char* name) const { return dir_ + "/" + name; }
  void Write(const char* name, const char* text) const {
    FILE* f = fopen(Path(name).c_str(), "w");
    ASSERT_NE(f, nullptr);
    fputs(text, f);
    fclose(f);
  }
  std::string dir_;
};

// One error line, "[func.line] text", and nothing else.
::testing::AssertionResult OneError(bvtest::LogCapture& log, const char* func, int line,
                                    const std::string& text) {
  const auto lines = log.Lines();
  log.Clear();
  if (lines.size() == 1 && lines[0].priority == 6 && lines[0].tag == "ZR481_ALGO" &&
      lines[0].text == bvtest::Msg(func, line, text)) {
    return ::testing::AssertionSuccess();
  }
  auto r = ::testing::AssertionFailure() << lines.size() << " lines; want " << bvtest::Msg(func, line, text);
  for (const auto& l : lines) r << "\n  got (" << l.priority << ", " << l.tag << ") " << l.text;
  return r;
}

TEST_F(XmlFiles, LoadGoodMalformedAndMissing) {
  bvtest::LogCapture log;
  Write("good.xml", "<calib><cam id=\"1\" f=\"2.5\"/></calib>\n");
  XMLDocument doc;
  EXPECT_EQ(Bivista_XmlLoadFile(&doc, Path("good.xml").c_str()), 0);
  EXPECT_TRUE(log.Lines().empty());
  const tinyxml2::XMLElement* cam = doc.FirstChildElement("calib")->FirstChildElement("cam");
  ASSERT_NE(cam, nullptr);
  EXPECT_DOUBLE_EQ(cam->DoubleAttribute("f"), 2.5);

  Write("bad.xml", "<calib><cam></calib>");
  EXPECT_EQ(Bivista_XmlLoadFile(&doc, Path("bad.xml").c_str()), tinyxml2::XML_ERROR_MISMATCHED_ELEMENT);
  EXPECT_TRUE(OneError(log, "Bivista_XmlLoadFile", bivista::kLineXmlLoad, "xml loadFile ecode 14"));
  Write("bad.xml", "");
  EXPECT_EQ(Bivista_XmlLoadFile(&doc, Path("bad.xml").c_str()), tinyxml2::XML_ERROR_EMPTY_DOCUMENT);
  EXPECT_TRUE(OneError(log, "Bivista_XmlLoadFile", bivista::kLineXmlLoad, "xml loadFile ecode 13"));

  EXPECT_EQ(Bivista_XmlLoadFile(&doc, Path("missing.xml").c_str()), tinyxml2::XML_ERROR_FILE_NOT_FOUND);
  EXPECT_TRUE(OneError(log, "Bivista_XmlLoadFile", bivista::kLineXmlLoad, "xml loadFile ecode 3"));
  EXPECT_EQ(Bivista_XmlLoadFile(&doc, nullptr), tinyxml2::XML_ERROR_FILE_COULD_NOT_BE_OPENED);
  EXPECT_TRUE(OneError(log, "Bivista_XmlLoadFile", bivista::kLineXmlLoad, "xml loadFile ecode 4"));
  EXPECT_EQ(Bivista_XmlLoadFile(nullptr, Path("good.xml").c_str()), 4);
  EXPECT_TRUE(OneError(log, "Bivista_XmlLoadFile", bivista::kLineXmlLoad, "xml loadFile ecode 4"));
}

TEST_F(XmlFiles, SaveRoundTripsAndReportsUnwritablePaths) {
  bvtest::LogCapture log;
  XMLDocument doc;
  ASSERT_EQ(doc.Parse("<calib><cam id=\"2\">text</cam></calib>"), tinyxml2::XML_SUCCESS);
  EXPECT_EQ(Bivista_XmlSaveFile(&doc, Path("out.xml").c_str()), 0);
  EXPECT_TRUE(log.Lines().empty());
  XMLDocument back;
  ASSERT_EQ(Bivista_XmlLoadFile(&back, Path("out.xml").c_str()), 0);
  EXPECT_STREQ(back.FirstChildElement("calib")->FirstChildElement("cam")->GetText(), "text");

  const std::string unwritable[] = {Path("no/such/dir.xml"), dir_};  // missing dir, a directory
  for (const std::string& p : unwritable) {
    EXPECT_EQ(Bivista_XmlSaveFile(&doc, p.c_str()), tinyxml2::XML_ERROR_FILE_COULD_NOT_BE_OPENED) << p;
    EXPECT_TRUE(OneError(log, "Bivista_XmlSaveFile", bivista::kLineXmlSave, "xml saveFIle ecode =4"));
  }
  if (access("/dev/full", W_OK) == 0) {  // the open works, the write does not
    EXPECT_EQ(Bivista_XmlSaveFile(&doc, "/dev/full"), tinyxml2::XML_ERROR_FILE_COULD_NOT_BE_OPENED);
    EXPECT_TRUE(OneError(log, "Bivista_XmlSaveFile", bivista::kLineXmlSave, "xml saveFIle ecode =4"));
  }
  EXPECT_EQ(Bivista_XmlSaveFile(nullptr, Path("out.xml").c_str()), 4);
  EXPECT_TRUE(OneError(log, "Bivista_XmlSaveFile", bivista::kLineXmlSave, "xml saveFIle ecode =4"));
  EXPECT_EQ(Bivista_XmlSaveFile(&doc, nullptr), 4);
  EXPECT_TRUE(OneError(log, "Bivista_XmlSaveFile", bivista::kLineXmlSave, "xml saveFIle ecode =4"));
}

}  // namespace
