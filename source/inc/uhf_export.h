/* Export marker shared by every public header. */
#ifndef UHF_EXPORT_H
#define UHF_EXPORT_H

#if defined(__GNUC__)
#define UHF_API __attribute__((visibility("default")))
#else
#define UHF_API
#endif

#ifdef __cplusplus
#define UHF_BEGIN_DECLS extern "C" {
#define UHF_END_DECLS }
#else
#define UHF_BEGIN_DECLS
#define UHF_END_DECLS
#endif

#endif
