#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/model/records.h"
#include "core/support/date.h"

// Realistic libraries for benchmarks: the same arguments always give the same library,
// on every platform (no standard-library distributions involved).
namespace velto::bench {

// A client grant present in every generated library, allowed to reopen tabs, whose
// stored hash is that of kBenchClientToken; benchmarks authorize with these two.
inline constexpr std::string_view kBenchClientID = "5A3F0C2E-9B1D-4E7A-8C6F-2D4B1E9A7C30";
inline constexpr std::string_view kBenchClientToken =
    "7c1e9a4b2d6f8035e1a9c7b3d5f20486a8c1e3b5d7f90214c6e8a0b2d4f61739";

// `savedTabs` saved tabs (mostly closed, some saved or pending close; titles in several
// scripts, emoji included; URLs with paths and queries on a few hundred hosts, some of
// them excluded by default and some URLs repeated; all four browsers), `liveTabs` open
// tabs observed 5 s before `now`, liveUpdatedAt = now - 5 s, every browser connected,
// and two client grants (see kBenchClientID). All dates are whole seconds, so decoding
// the encoded library gives it back exactly. 100,000 saved tabs encode to about 37 MB.
LibraryState generateLibrary(size_t savedTabs, size_t liveTabs, uint32_t seed, Date now);

// encodeLibrary(generateLibrary(...)): the library in its file form.
std::string generateLibraryJSON(size_t savedTabs, size_t liveTabs, uint32_t seed, Date now);

}  // namespace velto::bench
