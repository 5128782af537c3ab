#include "DocumentChanges.h"

#include <gtest/gtest.h>

#include "SchemaCheck.h"

namespace {

std::string changed(std::string document, const std::string& from, const std::string& to) {
    const std::size_t at = document.find(from);
    if (at == std::string::npos) {
        ADD_FAILURE() << "not in the document: " << from;
        return document;
    }
    return document.replace(at, from.size(), to);
}

}  // namespace

void expectAccepted(const std::string& schema, const std::string& document,
                    const std::vector<Change>& changes) {
    EXPECT_EQ(schemaComplaints(schema, document), "") << document;
    for (const auto& [from, to] : changes) {
        const std::string text = changed(document, from, to);
        EXPECT_EQ(schemaComplaints(schema, text), "") << text;
    }
}

void expectRefused(const std::string& schema, const std::string& document,
                   const std::vector<RefusedChange>& mistakes) {
    ASSERT_EQ(schemaComplaints(schema, document), "") << document;
    for (const auto& [from, to, named] : mistakes) {
        const std::string complaints = schemaComplaints(schema, changed(document, from, to));
        EXPECT_NE(complaints.find(named), std::string::npos)
            << "instead of " << from << ": " << to << "\nnot said: " << named << "\nbut: " << complaints;
    }
}
