/* tavloms/export.h: linkage of everything the library exports.
 *
 * TAVLO_API marks an exported function, variable or class; TAVLO_BEGIN_C and
 * TAVLO_END_C wrap the flat interface in extern "C" for C++ clients. Clients
 * never need this header on its own; every other public header includes it. */
#ifndef TAVLOMS_EXPORT_H
#define TAVLOMS_EXPORT_H

#if defined(_WIN32)
#  if defined(TAVLOMS_BUILDING)
#    define TAVLO_API __declspec(dllexport)
#  elif defined(TAVLOMS_STATIC)
#    define TAVLO_API
#  else
#    define TAVLO_API __declspec(dllimport)
#  endif
#else
#  define TAVLO_API __attribute__((visibility("default")))
#endif

/* Types declared between these two are visible outside the library, so that
 * templates instantiated over them (the iterators) are exported too. */
#if !defined(_WIN32) && (defined(__GNUC__) || defined(__clang__))
#  define TAVLO_BEGIN_VISIBLE _Pragma("GCC visibility push(default)")
#  define TAVLO_END_VISIBLE _Pragma("GCC visibility pop")
#else
#  define TAVLO_BEGIN_VISIBLE
#  define TAVLO_END_VISIBLE
#endif

/* Forwarders from the names <windows.h>'s GetMessage macro gives a call to
 * the class's own GetMessage members (see platform.h); empty elsewhere. */
#if defined(__cplusplus) && defined(_WIN32)
#  define TAVLO_GETMESSAGE_FORWARDER(name, qualifier)                                  \
    template <class... Args>                                                          \
    auto name(Args&&... args) qualifier->decltype(this->GetMessage(static_cast<Args&&>(args)...)) { \
        return this->GetMessage(static_cast<Args&&>(args)...);                        \
    }
#  define TAVLO_GETMESSAGE_FORWARDERS(qualifier)        \
    TAVLO_GETMESSAGE_FORWARDER(GetMessageA, qualifier) \
    TAVLO_GETMESSAGE_FORWARDER(GetMessageW, qualifier)
#else
#  define TAVLO_GETMESSAGE_FORWARDERS(qualifier)
#endif

#ifdef __cplusplus
#  define TAVLO_BEGIN_C extern "C" {
#  define TAVLO_END_C }
#else
#  define TAVLO_BEGIN_C
#  define TAVLO_END_C
#endif

#endif /* TAVLOMS_EXPORT_H */
