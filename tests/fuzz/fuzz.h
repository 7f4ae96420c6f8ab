#pragma once

#include <QByteArray>

#include <cstdint>
#include <cstdlib>

// What the fuzz targets share. Each defines the entry point below: libFuzzer calls it with bytes of
// its own making, replay_corpus.cpp with the files of the corpus.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

// A copy, so that reading beyond its end is noticed.
inline QByteArray bytes(const uint8_t* data, size_t size)
{
    return QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
}

// A broken promise ends the program, as both runners expect of a finding.
inline void require(bool promise)
{
    if (!promise)
        std::abort();
}

} // namespace fuzz
