#include "TVLThrowable.h"

#include <gtest/gtest.h>

namespace {

TEST(TVLThrowableTest, CarriesItsMessageAndThePlaceThatThrew) {
    const TVLThrowable throwable("what happened", "file.cpp", 12);
    EXPECT_STREQ(throwable.getMessage(), "what happened");
    EXPECT_STREQ(throwable.what(), "what happened");
    EXPECT_STREQ(throwable.getBackTrace(), "file.cpp:12\n");
}

TEST(TVLThrowableTest, NotesThePlacesItPassesThrough) {
    TVLThrowable throwable("x", "inner.cpp", 1);
    throwable.addBackTrace("outer.cpp", 22);
    EXPECT_STREQ(throwable.getBackTrace(), "inner.cpp:1\nouter.cpp:22\n");
}

TEST(TVLThrowableTest, ExhaustedMemoryHasItsOwnKind) {
    try {
        throw TVLOutOfMemoryError("file.cpp", 3);
    } catch (const TVLThrowable& throwable) {
        EXPECT_STREQ(throwable.getMessage(), "out of memory");
        EXPECT_STREQ(throwable.getBackTrace(), "file.cpp:3\n");
    }
}

}  // namespace
