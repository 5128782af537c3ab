// The XML library's way to the network: none.
//
// Purpose: linking XmlNetwork.cpp replaces the XML library's network accessor by one that refuses.
// Ownership, threads, units: none.
// Errors: a document that wants the network is a parse error.
#pragma once

namespace XmlNetwork {

// Called before the XML library starts. Does nothing; naming it makes the linker take the replacement before
// it looks for the library's own accessor.
void refuse();

}  // namespace XmlNetwork
