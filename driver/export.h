// Marks what the library exports. Everything else is hidden; the linker
// map driver/exports.map is the final word on the exported set.
#ifndef QUORVEL_RV_EXPORT_H
#define QUORVEL_RV_EXPORT_H
#define RV_EXPORT __attribute__((visibility("default")))
#endif
