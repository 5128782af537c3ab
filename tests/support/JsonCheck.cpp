#include "JsonCheck.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "ExternalProgram.h"

namespace {

constexpr const char* kChecker = R"(
import json, sys
from jsonschema import Draft202012Validator as Validator, FormatChecker
with open(sys.argv[1], encoding="utf-8") as file:
    schema = json.load(file)
Validator.check_schema(schema)
validator = Validator(schema, format_checker=FormatChecker())
with open(sys.argv[2], encoding="utf-8") as file:
    text = file.read()
texts = text.splitlines() if sys.argv[3] == "lines" else [text]
if not texts:
    print("there is no line")
for number, each in enumerate(texts, 1):
    for error in validator.iter_errors(json.loads(each)):
        print(f"{number}: {error.json_path}: {error.message}")
)";

}  // namespace

std::string jsonComplaints(const std::string& schema, const std::string& json, bool isLines) {
    std::string file = std::filesystem::temp_directory_path() / "json_XXXXXX";
    const int descriptor = mkstemp(file.data());
    if (descriptor < 0) throw std::runtime_error("no temporary file");
    close(descriptor);
    std::ofstream(file) << json;
    ExternalProgram checker({"python3", "-c", kChecker, VBS_SCHEMAS "/" + schema + ".schema.json", file,
                             isLines ? "lines" : "whole"});
    const int exitCode = checker.waitForEnd();
    std::filesystem::remove(file);
    return exitCode == 0 ? checker.words() : "the checker failed: " + checker.words();
}
