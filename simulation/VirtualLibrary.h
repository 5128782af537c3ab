// The security library of a virtual machine.
//
// Purpose: the 38 entry points, for the loader: connections lead to the children of VirtualMachine::current(), take the
//   time that they would take, and leave the detail texts that the real library leaves. What the service does not call
//   is not offered.
// Ownership: handles and texts are the caller's, as SEK_Crypto_Interface.h says.
// Threads: as SEK_Crypto_Interface.h says.
// Units: milliseconds.
// Errors: as SEK_Crypto_Interface.h says.
#pragma once

namespace VirtualLibrary {

// The entry point of that name; null when there is none.
void* find(const char* name);

}  // namespace VirtualLibrary
