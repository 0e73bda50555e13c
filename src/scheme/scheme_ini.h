// Schemes read from and written as INI text; the exported functions in
// scheme_api.cpp check their arguments and call these.
#pragma once

#include <cstdint>

#include "common/error_site.h"
#include "scheme/scheme_objects.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqini.h"
#include "zqsys/zqscheme.h"

namespace zq::scheme {

// Loads the scheme `name` from the "dbscheme:" section of the INI `ini`.
// `out` receives the scheme even when the load fails (the caller frees it),
// null when it could not be made.
std::uint32_t LoadScheme(std::uint32_t ini, const char* name, HZQDBSCHEME* out);

// Loads a recordset scheme from the section of its name; `out` is set only
// on success.
std::uint32_t LoadRecordset(std::uint32_t ini, const char* section, HZQDBTABLE* out);

// Writes the scheme's "lifenumber" line.
std::uint32_t WriteLifeNumber(std::uint32_t ini, const CZqDBScheme& scheme, std::uint32_t life);

// Hands the scheme to `callback` one INI line at a time; see CbkSaveToDb.
std::uint32_t SaveScheme(const CZqDBScheme& scheme, ZQSCHEME_SAVE_CBK callback, void* context);

// Runs `body` on the INI file `path`, opened for it and closed after, also
// when `body` throws.
template <class Body>
std::uint32_t WithIniFile(const char* path, Body&& body) {
  struct Opened {
    ~Opened() {
      if (ini != 0) ZqIniCustClose(ini);
    }
    std::uint32_t ini = 0;
  } opened;
  if (const std::uint32_t rc = ZqIniCustOpen(&opened.ini, path)) return ZQ_RETURN_ZQERR(rc);
  return body(opened.ini);
}

}  // namespace zq::scheme
