/* Compiled once for any processor and once for AVX2. It is C, so that the second leaves no inline function behind which
 * the linker could take for a processor without. All of stb stays inside: the host may have its own copy. */
#include "capture/stb_png.h"

#include <libdeflate.h>

/* The fastest level but one. It tells itself in the header: 78 5E, as stb's own compression does. */
enum { kCompressionLevel = 2 };

static unsigned char* Compress(unsigned char* bytes, int count, int* compressed_count) {
    const size_t bound = libdeflate_zlib_compress_bound(NULL, (size_t)count);
    /* First, as it may throw. */
    unsigned char* compressed = velmoor_png_resize(NULL, bound);
    struct libdeflate_compressor* compressor = libdeflate_alloc_compressor(kCompressionLevel);
    if (!compressor) return NULL;
    *compressed_count = (int)libdeflate_zlib_compress(compressor, bytes, (size_t)count, compressed, bound);
    libdeflate_free_compressor(compressor);
    return *compressed_count > 0 ? compressed : NULL;
}

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#define STBIW_MALLOC(size) velmoor_png_resize(NULL, (size_t)(size))
#define STBIW_REALLOC(memory, size) velmoor_png_resize(memory, (size_t)(size))
#define STBIW_FREE(memory) velmoor_png_free(memory)
#define STBIW_ZLIB_COMPRESS(bytes, count, compressed_count, quality) Compress(bytes, count, compressed_count)
#include <stb_image_write.h>

int VELMOOR_PNG_WRITER(VelmoorPngSink* sink, void* context, const uint8_t* pixels, int width, int height) {
    return stbi_write_png_to_func(sink, context, width, height, 4, pixels, width * 4);
}
