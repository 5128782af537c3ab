// The product's startup configuration.
//
// Purpose: look-ups in ../configuration/startup.xml, read on first use, and the path operation.
// Ownership: one process-wide instance, never destroyed; the elements it hands out live as long as the
//   document model (TVLIDOM_DOMImplementation).
// Threads: every member may be called from any thread; handed-out elements are read on the main thread.
// Units: none.
// Errors: TVLConfigurationException with file, line, column and the parser's words when the file exists and
//   cannot be read or is not well-formed. An absent file is an empty configuration. getString() throws
//   std::bad_alloc when the memory does not suffice, and can be called again.
#pragma once

#include <string>

#include "TVLIDOM_Document.h"
#include "TVLThreadSync.h"
#include "TVLThrowable.h"

class TVLConfigurationException : public TVLThrowable {
  public:
    using TVLThrowable::TVLThrowable;
};

class TVLConfigurationFactory {
  public:
    static TVLConfigurationFactory* getInstance();
    virtual ~TVLConfigurationFactory();

    // The first child element of the root with that name, null when there is none.
    TVLIDOM_Element getElement(const I18NString& name);
    // The text of such an element, empty when there is none.
    I18NString getString(const I18NString& name);
    // The installed version of a component, empty when it is not installed.
    I18NString getComponentVersion(const I18NString& component);
    // Rewrites a path to its absolute, lexically normalised form; empty when the working directory is
    // unknown. Does not read the document.
    virtual void getFullPath(std::string& path);

  protected:
    TVLConfigurationFactory() = default;

  private:
    friend class TestAccess;

    TVLIDOM_Element child(const I18NString& name) TVL_REQUIRES(m_mutex);
    void load() TVL_REQUIRES(m_mutex);

    static TVLConfigurationFactory* m_pInstance;

    TVLThreadMutex m_mutex;
    bool m_loaded TVL_GUARDED_BY(m_mutex) = false;
    TVLIDOM_Document m_document TVL_GUARDED_BY(m_mutex);
};
