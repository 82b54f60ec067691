#include "kestrine/platform/core/io.h"

namespace kestrine::platform::core::io {

// Anchors the interfaces' type information in the library.
IDataReader::~IDataReader() = default;

IDataWriter::~IDataWriter() = default;

}  // namespace kestrine::platform::core::io
