#include "ZORBadConfigException.h"

#include <exception>
#include <string>
#include <type_traits>

#include "TestKit.h"

namespace {

// A catch of the standard exceptions must not take a configuration error by accident.
static_assert(!std::is_base_of_v<std::exception, ZORBadConfigException>);
static_assert(std::has_virtual_destructor_v<ZORBadConfigException>);

TEST(ZORBadConfigExceptionTest, GivesBackItsMessage) {
    const ZORBadConfigException exception(R"(required element "start" is missing.)");
    EXPECT_STREQ(exception.getMessage(), R"(required element "start" is missing.)");
}

TEST(ZORBadConfigExceptionTest, OwnsItsMessageAlsoWhenThrown) {
    std::string message = "first words";
    try {
        throw ZORBadConfigException(message.c_str());
    } catch (const ZORBadConfigException& caught) {
        message = "other words";
        EXPECT_STREQ(caught.getMessage(), "first words");
    }
}

}  // namespace
