// Whose instance it is.
//
// Purpose: the documents, the environment file and the certificates of an instance are its user's word. Root, which must
//   not take another user's word for anything, becomes that user before it reads them, for good.
// Ownership: none.
// Threads: before there are others.
// Units: none.
// Errors: CTLError when root cannot become that user.
#pragma once

class CTLInstance;

namespace CTLUser {

// The instance's user is the one that its logs/ folder belongs to, where the service writes.
void become(const CTLInstance& instance);

}  // namespace CTLUser
