// The entry points that the service never calls: each notes its arguments and returns what is queued for it. All 38 are
// defined here, weakly, so that those with a behaviour of their own (ScriptedSek.cpp) take precedence.
#include "SEK_Crypto_Interface.h"
#include "SEK_EntryPoints.h"
#include "ScriptedSek.h"

#define VBS_UNUSED(name, parameters, arguments, details)                     \
    extern "C" __attribute__((weak)) long name parameters {                  \
        return ScriptedSek::noteUnused(#name, ScriptedSek::spell arguments); \
    }

#ifdef SCRIPTED_SEK_INCOMPLETE
// The last of the list is there and cannot be found by name.
extern "C" __attribute__((visibility("hidden"))) long AS_DecryptText(long, unsigned long, int, const char*,
                                                                     int*, char*);
#endif

SEK_ENTRY_POINTS(VBS_UNUSED)
#undef VBS_UNUSED
