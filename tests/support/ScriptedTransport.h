// The process's security library, scripted.
//
// Purpose: loads and initialises the scripted library as the service does, and terminates it at the end.
// Ownership: one at a time; the script starts empty, without the call that initialised it.
// Threads: as ZORCryptoHelper.
#pragma once

#include "ScriptedSek.h"
#include "ZORCryptoHelper.h"

class ScriptedTransport {
  public:
    ScriptedTransport() {
        sek().reset();
        ZORCryptoHelper::InitializeCrypto();
        sek().reset();
    }
    ~ScriptedTransport() {
        ZORCryptoHelper::TerminateCrypto();
        sek().reset();
    }
    ScriptedTransport(const ScriptedTransport&) = delete;
    ScriptedTransport& operator=(const ScriptedTransport&) = delete;

    static ScriptedSek& sek() { return ScriptedSek::instance(); }
};
