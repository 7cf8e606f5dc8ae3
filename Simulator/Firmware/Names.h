// Names of GUIDs and statuses, as people write them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base.h"

namespace Simulator {

// "gFoo...Guid" for a GUID that the driver knows, else its canonical text.
std::string GuidName(const EFI_GUID& Guid);
// nullptr for a name that is none.
const EFI_GUID* FindGuid(std::string_view Name);

// "EFI_NOT_FOUND"; a number for a status without a name.
std::string StatusName(EFI_STATUS Status);
std::optional<EFI_STATUS> FindStatus(std::string_view Name);

// How journals and --out name the record that entered GHES as number Index, from 0: "records/0001.cper" is the first.
std::string RecordFileName(std::size_t Index);

}  // namespace Simulator
