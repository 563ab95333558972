// version.cpp - the static version record.
#include "zyrdc.h"

namespace {

// Revision of the source this record describes; shown in hexadecimal in the version string.
constexpr uint32_t kRevision = 0xcd107b02u;

constexpr VersionRecord kVersion = {
    ZYRDC_VERSION_MAJOR,
    ZYRDC_VERSION_MINOR,
    ZYRDC_VERSION_UPDATE,
    static_cast<int32_t>(kRevision),
    {'q', '4', '\0', '\0'},
    "zyrDC SSE2 (q4)",
    "2021.11.0 (r0xcd107b02)",
    "Jan 30 2024",
};

static_assert(static_cast<int32_t>(kRevision) == -854557950);

}  // namespace

extern "C" ZYRDC_API const VersionRecord* zyrdcGetLibVersion(void) { return &kVersion; }
