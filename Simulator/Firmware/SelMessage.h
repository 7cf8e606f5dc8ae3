// Which message the BMC shows for an event body.
#pragma once

#include <string>

#include "Include/SelData.h"

namespace Simulator {

// The message's identifier; empty for a body that has none of its own.
std::string SelMessageId(const ELOG_SEL_DATA& Body);

}  // namespace Simulator
