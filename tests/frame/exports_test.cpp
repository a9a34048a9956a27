// The export list against the built library and the public header, and the
// version record.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <cstdio>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "zebjp.h"

namespace {

std::string readFile(const std::string& path) {
    std::ifstream f(path);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

std::vector<std::string> listNames() {
    std::vector<std::string> names;
    std::istringstream in(readFile(std::string(ZEB_SOURCE_DIR) + "/src/frame/exports.inc"));
    std::string line;
    std::regex re(R"(^ZEB_EXPORT\((\w+),)");
    std::smatch m;
    while (std::getline(in, line))
        if (std::regex_search(line, m, re)) names.push_back(m[1]);
    return names;
}

TEST(ExportList, IsInStrictAsciiOrder) {
    auto names = listNames();
    ASSERT_FALSE(names.empty());
    for (size_t i = 1; i < names.size(); ++i)
        EXPECT_LT(names[i - 1], names[i]) << "export list out of order at line of " << names[i];
    EXPECT_EQ(names.front(), "zebiAdd128_JPEG_16s8u_C1R");
    EXPECT_EQ(names.back(), "zebjGetLibVersion");
}

TEST(ExportList, LibraryExportsExactlyTheList) {
    std::string cmd = std::string("nm -D --defined-only ") + ZEB_LIB_FILE;
    FILE* p = popen(cmd.c_str(), "r");
    ASSERT_NE(p, nullptr);
    std::vector<std::string> syms;
    char buf[512];
    while (fgets(buf, sizeof buf, p)) {
        std::istringstream ls(buf);
        std::string addr, type, name;
        ls >> addr >> type >> name;
        if (name.empty()) continue;  // undefined or odd lines
        syms.push_back(name);
    }
    ASSERT_EQ(pclose(p), 0);
    std::sort(syms.begin(), syms.end());
    EXPECT_EQ(syms, listNames());
}

TEST(ExportList, HeaderDeclaresExactlyTheList) {
    std::string h = readFile(std::string(ZEB_SOURCE_DIR) + "/include/zebjp.h");
    std::regex re(R"(ZEBAPI\s+[^;(]*?\b(zeb[ij]\w+)\s*\()");
    std::vector<std::string> declared;
    for (auto it = std::sregex_iterator(h.begin(), h.end(), re); it != std::sregex_iterator(); ++it)
        declared.push_back((*it)[1]);
    std::sort(declared.begin(), declared.end());
    EXPECT_EQ(std::adjacent_find(declared.begin(), declared.end()), declared.end()) << "declared twice";
    EXPECT_EQ(declared, listNames());
}

TEST(Version, RecordIsConstantAndExact) {
    const ZebLibraryVersion* v = zebjGetLibVersion();
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v, zebjGetLibVersion());
    EXPECT_EQ(v->major, 7);
    EXPECT_EQ(v->minor, 1);
    EXPECT_EQ(v->majorBuild, 1);
    EXPECT_EQ(v->build, 37466);
    EXPECT_EQ(v->targetCpu[0], 'h');
    EXPECT_EQ(v->targetCpu[1], '9');
    EXPECT_EQ(v->targetCpu[2], '\0');
    EXPECT_EQ(v->targetCpu[3], '\0');
    int32_t word;
    std::memcpy(&word, v->targetCpu, 4);
    EXPECT_EQ(word, 14696);
    EXPECT_STREQ(v->name, "zebJP AVX2 (h9)");
    EXPECT_STREQ(v->version, "7.1.1 (r37466)");
    EXPECT_STREQ(v->buildDate, "Sep 28 2012");
}

TEST(Version, RecordLayoutIsFourWordsThenFourBytesThenThreePointers) {
    EXPECT_EQ(offsetof(ZebLibraryVersion, targetCpu), 16u);
    EXPECT_EQ(offsetof(ZebLibraryVersion, name), 24u);  // pointer-aligned on this 64-bit build
    EXPECT_EQ(sizeof(ZebSize), 8u);
    EXPECT_EQ(sizeof(ZebTileRect), 16u);
}

}  // namespace
