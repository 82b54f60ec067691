#ifndef KESTRINE_PLATFORM_DATA_H_
#define KESTRINE_PLATFORM_DATA_H_

// The whole public interface of the data layer: the container and XML front ends,
// containers with their kind views and filters, properties, primitives, tables, string
// arrays, the schema locator with schemas and layouts, value types, units and the exported
// type identifiers.
#include "kestrine/platform/data/format/xml.h"
#include "kestrine/platform/data/metadata/filter.h"
#include "kestrine/platform/data/metadata/primitive.h"
#include "kestrine/platform/data/metadata/property.h"
#include "kestrine/platform/data/metadata/schema.h"
#include "kestrine/platform/data/metadata/table.h"
#include "kestrine/platform/data/metadata/value.h"
#include "kestrine/platform/data/structure/container.h"
#include "kestrine/platform/data/type.h"
#include "kestrine/platform/data/units.h"

#endif  // KESTRINE_PLATFORM_DATA_H_
