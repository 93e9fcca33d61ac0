// SPDX-License-Identifier: GPL-3.0-or-later
// The two entry points of a fuzz target. LLVMFuzzerTestOneInput is libFuzzer's;
// VelomarFuzzSeeds gives the generated inputs that start a corpus, so that no
// sample file has to be kept or fetched.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

std::vector<std::vector<uint8_t>> VelomarFuzzSeeds();
