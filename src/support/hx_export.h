/* Marks the exported symbols of the shared library. All other symbols are hidden. */
#ifndef HX_EXPORT_H
#define HX_EXPORT_H

#define HX_EXPORT __attribute__((visibility("default")))

#endif
