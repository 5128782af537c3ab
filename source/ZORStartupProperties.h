// The startup configuration and the Java preferences, turned into properties.
//
// Purpose: finds the service's own element of the startup configuration and defines the properties that documents refer
//   to: parameters, temp folder, dispatcher, service name, Java vendor.
// Ownership: the element belongs to the configuration factory.
// Threads: the main thread, before others exist.
// Units: memory in whatever unit the configuration has.
// Errors: ZORBadConfigException for a startup configuration that cannot be read; everything else is a line in the log.
#pragma once

#include <string>

#include "TVLIDOM_Node.h"

class ZORStartupProperties {
  public:
    explicit ZORStartupProperties(const char* defaultServiceName)
        : m_defaultServiceName(defaultServiceName) {}
    ZORStartupProperties(const ZORStartupProperties&) = delete;
    ZORStartupProperties& operator=(const ZORStartupProperties&) = delete;

    bool findElement();  // false when the configuration lacks the service's element
    void prepare();
    static void calculateMemory();
    // Stores the value of the parameter's first value of that type; false when there is none.
    bool read(I18NString& value, const char* name, const char* type) const;
    void findJavaVendor() const;

    TVLIDOM_Element m_element;  // the service's own; null until it has been found

  private:
    void addParameters() const;
    void addTemp() const;
    void addDispatcher(const std::string& instanceName) const;

    std::string m_defaultServiceName;
};
