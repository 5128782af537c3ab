#include "ZORCLArg.h"

ZORCLArg::ZORCLArg(const char* text) : m_name(text == nullptr ? "" : text) {
    const std::size_t equals = m_name.find('=');
    if (equals == std::string::npos) return;
    m_value = m_name.substr(equals + 1);
    m_name.erase(equals);
}

bool ZORCLArg::isNumber() const {
    return m_value && !m_value->empty() && m_value->find_first_not_of("0123456789") == std::string::npos;
}
