// SQL text from a table scheme; the exported functions in scheme_api.cpp
// check their arguments and call these. Each writes its statement by the
// buffer rule of the sized texts. A statement that cannot be built whole is
// refused with 2; the failing step has logged its own code. They may throw
// std::bad_alloc.
#pragma once

#include <cstdint>

#include "scheme/scheme_objects.h"
#include "zqsys/zqscheme.h"

namespace zq::scheme {

// CREATE TABLE with the driver's type names, then its CREATE INDEX lines.
std::uint32_t TableCreationSql(const CZqDBRecord& table, const ZQDBDRIVER& driver, char* buffer,
                               std::uint32_t* size);
// DROP TABLE.
std::uint32_t TableDeleteSql(const CZqDBRecord& table, char* buffer, std::uint32_t* size);
// The SELECT of a recordset, its names quoted or not.
std::uint32_t RecordsetSql(const CZqDBRecord& table, bool quoted, char* buffer,
                           std::uint32_t* size);

}  // namespace zq::scheme
