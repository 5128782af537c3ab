#include "SEKEntry.h"

// The operations that this library does not offer: impersonation, credentials, passports and data protection.
// They are here because programs load the library only when every entry point is there.

using SEKEntry::refuse;

extern "C" {

long SEK_PersistentInitialize(void**, char*, char*, char** details) {
    return refuse(nullptr, details);
}

long SEK_SetInfo(void* handle, char*, char*) {
    return refuse(handle);
}

long SEK_ProtectData(void* handle, void*, unsigned long, void**, unsigned long*, char*) {
    return refuse(handle);
}

long SEK_UnprotectData(void* handle, void*, unsigned long, void**, unsigned long*, char*) {
    return refuse(handle);
}

long SEK_GetInfo(void* handle, char*, char**, char*) {
    return refuse(handle);
}

long SEK_ImpUsrInitialize(void**, char*, char*, char** details) {
    return refuse(nullptr, details);
}

long SEK_ImpUsrNegotiate(void* handle, char*, char**, char*) {
    return refuse(handle);
}

long SEK_ImpUsrImpersonate(void* handle, char*) {
    return refuse(handle);
}

long SEK_ImpUsrRevert(void* handle, char*) {
    return refuse(handle);
}

long SEK_ImpUsrSerializeHandle(void* handle, char**, char*) {
    return refuse(handle);
}

long SEK_ImpUsrDeserializeHandle(char*, void**, char**, char*) {
    return refuse(nullptr);
}

long SEK_EncryptCredential(void* handle, unsigned long, void*, unsigned long, unsigned long, void**,
                           unsigned long*, char*) {
    return refuse(handle);
}

long SEK_DecryptCredential(void* handle, unsigned long, void*, unsigned long, void**, unsigned long*, char*) {
    return refuse(handle);
}

long SEK_CMDRT_DecryptPassport(void*, unsigned long, void**, unsigned long*, char*) {
    return refuse(nullptr);
}

long AS_DecryptText(long, unsigned long, int, const char*, int*, char*) {
    return refuse(nullptr);
}

}  // extern "C"
