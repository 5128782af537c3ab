// What exchanges call, noted.
//
// Purpose: as long as one lives, it stands before those entry points of the security library that an exchange uses: each
//   call goes through to the library, and is noted in the exchange that its thread is about.
// Ownership: puts the library's own functions back in the end. There is one at a time.
// Threads: it is made and ended while no exchange is going on; a Taking belongs to its thread.
// Units: microseconds.
// Errors: without a library nothing is noted.
#pragma once

struct CTLExchange;

class CTLExchangeNotes {
  public:
    // What this thread calls is noted there as long as it lives.
    class Taking {
      public:
        explicit Taking(CTLExchange& exchange);
        ~Taking();
        Taking(const Taking&) = delete;
        Taking& operator=(const Taking&) = delete;
    };

    CTLExchangeNotes();
    ~CTLExchangeNotes();
    CTLExchangeNotes(const CTLExchangeNotes&) = delete;
    CTLExchangeNotes& operator=(const CTLExchangeNotes&) = delete;
};
