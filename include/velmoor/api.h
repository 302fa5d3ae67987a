/* What the public headers share. */
#ifndef VELMOOR_API_H
#define VELMOOR_API_H

#if defined(__GNUC__)
#define VELMOOR_API __attribute__((visibility("default")))
#else
#define VELMOOR_API
#endif

#endif /* VELMOOR_API_H */
