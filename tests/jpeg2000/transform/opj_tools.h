// Helpers of the wavelet tests that compare bands with what OpenJPEG's
// command-line tools reconstruct.
#pragma once

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace zebtest::opj {

inline bool haveTool(const char* name) {
    std::string cmd = std::string("command -v ") + name + " > /dev/null 2>&1";
    return std::system(cmd.c_str()) == 0;
}

// An 8-bit PGM file's samples; header fields separated by white space, with
// # comments to the end of a line.
inline std::vector<int> readPgm(const std::string& path, int& w, int& h) {
    std::ifstream f(path, std::ios::binary);
    auto field = [&f]() {
        std::string t;
        while (f >> t) {
            if (t[0] != '#') return t;
            std::getline(f, t);
        }
        return std::string("0");
    };
    field();
    w = std::stoi(field());
    h = std::stoi(field());
    field();
    f.get();
    std::vector<int> v(size_t(w) * h);
    for (auto& s : v) s = static_cast<unsigned char>(f.get());
    return v;
}

}  // namespace zebtest::opj
