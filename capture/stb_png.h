/* stb's PNG writer, with libdeflate in the place of its own compression. */
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void VelmoorPngSink(void* context, void* data, int size);

/* Hands the file of `pixels`, width times height times 4 bytes, to `sink`, whole. 0 if there is no memory. */
typedef int VelmoorPngWriter(VelmoorPngSink* sink, void* context, const uint8_t* pixels, int width, int height);

VelmoorPngWriter velmoor_write_png;
VelmoorPngWriter velmoor_write_png_avx2; /* on x86-64, for processors that have AVX2 */

/* The memory of the writers. Both are the caller's, in C++, and the first may throw. */
void* velmoor_png_resize(void* memory, size_t size);
void velmoor_png_free(void* memory);

#ifdef __cplusplus
}
#endif
