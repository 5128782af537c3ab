// The part of the doorway that leads to libraries that are loaded at run time.
//
// Purpose: the functions of the dynamic loader.
// Ownership: a library stays loaded until it is given to dlclose().
// Threads: every member may be called from any thread.
// Units: none.
// Errors: null, and of dlclose() a number other than 0.
#pragma once

class TVLOsLoader {
  public:
    TVLOsLoader() = default;
    TVLOsLoader(const TVLOsLoader&) = delete;
    TVLOsLoader& operator=(const TVLOsLoader&) = delete;
    virtual ~TVLOsLoader();

    virtual void* dlopen(const char* file, int mode) = 0;
    virtual void* dlsym(void* library, const char* name) = 0;
    virtual int dlclose(void* library) = 0;
};
