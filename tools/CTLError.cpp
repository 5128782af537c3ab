#include "CTLError.h"

CTLError::CTLError(int exitCode, const std::string& text) : std::runtime_error(text), m_exitCode(exitCode) {}

CTLError::~CTLError() = default;
