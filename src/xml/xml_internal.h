// Report lines of the XML file helpers.
#ifndef BIVISTA_SRC_XML_XML_INTERNAL_H
#define BIVISTA_SRC_XML_XML_INTERNAL_H

namespace bivista {

constexpr int kLineXmlLoad = 27;
constexpr int kLineXmlSave = 52;

}  // namespace bivista

#endif
