// corpus.hpp - the benchmark corpus: whole files from $ZYRDC_CORPUS (default
// the shared corpus folder beside the source tree); files that are not there are skipped.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace zyrdc::bench {

inline const char* const kCorpusFiles[] = {
    "alice29.txt", "lcet10.txt",   "plrabn12.txt",   "kennedy.xls", "ptt5",    "bible.txt",
    "world192.txt", "elf_x86_64.tar", "elf_i386.tar", "cxx_bits.tar", "xml.tar", "images.rgb",
};

inline std::string CorpusDir() {
    const char* dir = std::getenv("ZYRDC_CORPUS");
    return dir != nullptr ? dir : ZYRDC_CORPUS_DIR;
}

// The file's bytes, or an empty vector if it cannot be read.
inline std::vector<uint8_t> ReadCorpusFile(const std::string& name) {
    std::ifstream in(CorpusDir() + "/" + name, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

}  // namespace zyrdc::bench
