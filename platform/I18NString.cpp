#include "I18NString.h"

#include <algorithm>

std::size_t I18NString::length() const {
    const auto startsCharacter = [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;
    };
    return static_cast<std::size_t>(std::count_if(m_utf8.begin(), m_utf8.end(), startsCharacter));
}
