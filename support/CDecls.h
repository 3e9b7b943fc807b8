/* Macros that enclose the declarations exported by libzr4410: they give them C linkage and default visibility. */
#ifndef ZR4410_SUPPORT_CDECLS_H
#define ZR4410_SUPPORT_CDECLS_H

#ifdef __cplusplus
#define ZR4410_BEGIN_DECLS \
  extern "C" {             \
  _Pragma("GCC visibility push(default)")
#define ZR4410_END_DECLS        \
  _Pragma("GCC visibility pop") \
  }
#else
#define ZR4410_BEGIN_DECLS
#define ZR4410_END_DECLS
#endif

#endif
