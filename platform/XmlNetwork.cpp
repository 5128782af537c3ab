// The library's static archive creates a network accessor of the class defined here when it starts. Defining
// the class's members keeps the archive's own, which brings an HTTP client with all that it depends on, out
// of the executable. A service that loads no external entity must not be able to fetch one.
#include "XmlNetwork.h"

#include <xercesc/util/NetAccessors/Curl/CurlNetAccessor.hpp>
#include <xercesc/util/XMLExceptMsgs.hpp>
#include <xercesc/util/XMLUniDefs.hpp>

void XmlNetwork::refuse() {}

XERCES_CPP_NAMESPACE_BEGIN

int CurlNetAccessor::fgCurlInitCount = 0;
const XMLCh CurlNetAccessor::fgMyName[] = {chLatin_n, chLatin_o, chLatin_n, chLatin_e, chNull};

CurlNetAccessor::CurlNetAccessor() = default;

CurlNetAccessor::~CurlNetAccessor() = default;

void CurlNetAccessor::initCurl() {}

void CurlNetAccessor::cleanupCurl() {}

BinInputStream* CurlNetAccessor::makeNew(const XMLURL& urlSource, const XMLNetHTTPInfo* /*httpInfo*/) {
    ThrowXMLwithMemMgr1(NetAccessorException, XMLExcepts::NetAcc_UnsupportedMethod, urlSource.getURLText(),
                        urlSource.getMemoryManager());
}

XERCES_CPP_NAMESPACE_END
