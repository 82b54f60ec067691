#ifndef KESTRINE_PLATFORM_DATA_EXPORT_H_
#define KESTRINE_PLATFORM_DATA_EXPORT_H_

// The data layer is built with hidden visibility; its public interfaces, exported functions
// and constants are marked here.
#define KPL_DATA_API __attribute__((visibility("default")))

#endif  // KESTRINE_PLATFORM_DATA_EXPORT_H_
