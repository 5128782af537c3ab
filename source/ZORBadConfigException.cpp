#include "ZORBadConfigException.h"

ZORBadConfigException::ZORBadConfigException(const char* message) : m_message(message) {}

ZORBadConfigException::~ZORBadConfigException() = default;
