#include "Simulator/Machine/CxlRasCapability.h"

namespace Simulator {

bool CxlRasCapability::LogUncorrectable(unsigned Bit, const HeaderLog& Header) {
    const std::uint32_t Error = 1U << Bit;
    UncorrectableStatus |= Error;
    if ((UncorrectableMask & Error) != 0) {
        return false;
    }
    if (!FirstError) {
        FirstError = Bit;
        FirstErrorPointer = Bit;
        Log = Header;
    }
    return true;
}

bool CxlRasCapability::LogCorrectable(unsigned Bit) {
    const std::uint32_t Error = 1U << Bit;
    CorrectableStatus |= Error;
    return (CorrectableMask & Error) == 0;
}

bool CxlRasCapability::IsFatal(unsigned Bit) const {
    return (UncorrectableSeverity >> Bit & 1) != 0;
}

std::uint32_t CxlRasCapability::Read(std::uint32_t Register) const {
    switch (Register) {
        case CXL_RAS_UNCORRECTABLE_STATUS:
            return UncorrectableStatus;
        case CXL_RAS_UNCORRECTABLE_MASK:
            return UncorrectableMask;
        case CXL_RAS_UNCORRECTABLE_SEVERITY:
            return UncorrectableSeverity;
        case CXL_RAS_CORRECTABLE_STATUS:
            return CorrectableStatus;
        case CXL_RAS_CORRECTABLE_MASK:
            return CorrectableMask;
        case CXL_RAS_CAPABILITIES_AND_CONTROL:
            return CxlRasCapabilitiesAndControl::FirstErrorPointer::Of(FirstErrorPointer);
        default:
            return Log.at((Register - CXL_RAS_HEADER_LOG) / sizeof(std::uint32_t));
    }
}

void CxlRasCapability::Write(std::uint32_t Register, std::uint32_t Value) {
    switch (Register) {
        case CXL_RAS_UNCORRECTABLE_STATUS:
            UncorrectableStatus &= ~Value;
            if (FirstError && (UncorrectableStatus >> *FirstError & 1) == 0) {
                FirstError.reset();
            }
            break;
        case CXL_RAS_UNCORRECTABLE_MASK:
            UncorrectableMask = Value & CxlRasUncorrectable::All::Mask;
            break;
        case CXL_RAS_UNCORRECTABLE_SEVERITY:
            UncorrectableSeverity = Value & CxlRasUncorrectable::All::Mask;
            break;
        case CXL_RAS_CORRECTABLE_STATUS:
            CorrectableStatus &= ~Value;
            break;
        case CXL_RAS_CORRECTABLE_MASK:
            CorrectableMask = Value & CxlRasCorrectable::All::Mask;
            break;
        default:
            break;  // read-only
    }
}

}  // namespace Simulator
