#ifndef KESTRINE_PLATFORM_CORE_H_
#define KESTRINE_PLATFORM_CORE_H_

// Every core service of the platform: datastores, pooled heap and shared handles, wide
// strings and their conversions, readers and writers, XML parsing and writing, threads,
// UUIDs, and the hash kernels of the name indexes.
#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/exception.h"
#include "kestrine/platform/core/hash.h"
#include "kestrine/platform/core/io.h"
#include "kestrine/platform/core/lmdb_datastore.h"
#include "kestrine/platform/core/memory.h"
#include "kestrine/platform/core/postgres_datastore.h"
#include "kestrine/platform/core/string.h"
#include "kestrine/platform/core/thread.h"
#include "kestrine/platform/core/transactional_datastore.h"
#include "kestrine/platform/core/uuid.h"
#include "kestrine/platform/core/xml.h"

#endif  // KESTRINE_PLATFORM_CORE_H_
