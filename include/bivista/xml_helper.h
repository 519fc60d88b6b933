/* Loading and saving XML documents (calibration files) with failures reported to the log. */
#ifndef BIVISTA_XML_HELPER_H
#define BIVISTA_XML_HELPER_H

#ifdef __cplusplus

/* Quoted so that an installed copy beside this header is found first. */
#include "tinyxml2.h"

#include "bivista/bv_export.h"

BIVISTA_EXTERN_C_BEGIN

/* Loads path into doc. Returns the tinyxml2::XMLError code (0 on success); a failure logs
 * "xml loadFile ecode <code>". A null doc or path gives XML_ERROR_FILE_COULD_NOT_BE_OPENED. */
BIVISTA_API int Bivista_XmlLoadFile(tinyxml2::XMLDocument* doc, const char* path);

/* Writes doc to path (indented). Returns the tinyxml2::XMLError code (0 on success); a failure
 * logs "xml saveFIle ecode =<code>". Failing to open or to finish writing the file (full disk)
 * gives XML_ERROR_FILE_COULD_NOT_BE_OPENED, as does a null doc or path. */
BIVISTA_API int Bivista_XmlSaveFile(tinyxml2::XMLDocument* doc, const char* path);

BIVISTA_EXTERN_C_END

#endif

#endif
