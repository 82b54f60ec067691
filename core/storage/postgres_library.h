#ifndef KPL_CORE_STORAGE_POSTGRES_LIBRARY_H_
#define KPL_CORE_STORAGE_POSTGRES_LIBRARY_H_

#include <libpq-fe.h>

namespace kestrine::platform::core::storage::datastore {

// The libpq functions the PostgreSQL store calls. libpq is loaded the first time a store
// connects, not with this library: it brings in Kerberos, LDAP and TLS libraries whose loading
// costs every process some milliseconds at start, and most processes never open a
// PostgreSQL store.
// clang-format off
#define KPL_POSTGRES_FUNCTIONS(X) \
  X(PQclear) \
  X(PQconnectdbParams) \
  X(PQenterPipelineMode) \
  X(PQerrorMessage) \
  X(PQexec) \
  X(PQexecParams) \
  X(PQexitPipelineMode) \
  X(PQfformat) \
  X(PQfinish) \
  X(PQftype) \
  X(PQgetisnull) \
  X(PQgetlength) \
  X(PQgetResult) \
  X(PQgetvalue) \
  X(PQnfields) \
  X(PQntuples) \
  X(PQpipelineSync) \
  X(PQputCopyData) \
  X(PQputCopyEnd) \
  X(PQresultErrorField) \
  X(PQresultErrorMessage) \
  X(PQresultStatus) \
  X(PQsendQueryParams) \
  X(PQsetNoticeProcessor) \
  X(PQstatus)
// clang-format on

struct PostgresLibrary {
  // libpq, loaded on the first call; throws Exception with the cause when it cannot be.
  static const PostgresLibrary& get();

#define KPL_POSTGRES_FUNCTION(name) decltype(&::name) name = nullptr;
  KPL_POSTGRES_FUNCTIONS(KPL_POSTGRES_FUNCTION)
#undef KPL_POSTGRES_FUNCTION
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_POSTGRES_LIBRARY_H_
