// The process's one security library.
//
// Purpose: loads and initialises it for this service, and terminates it at the end.
// Ownership: owns the process-wide TVLCrypto between InitializeCrypto() and TerminateCrypto().
// Threads: both on the main thread, before the supervisor starts and after it has ended; GetCrypto() from
//   any.
// Units: none.
// Errors: FATAL lines and a result of 0; the service goes on without socket commands.
#pragma once

#include "TVLCrypto.h"

class ZORCryptoHelper {
  public:
    // Null before InitializeCrypto(); may hold a library that is not open.
    static TVLCrypto* GetCrypto() { return m_pCryptoLib; }
    // Deliberate: a second call is 1 even after a failure; see
    // ZORCryptoHelperTest.ASecondInitialisationAfterAFailureReportsSuccess.
    static int InitializeCrypto();
    static void TerminateCrypto();

  private:
    static TVLCrypto* m_pCryptoLib;
};
