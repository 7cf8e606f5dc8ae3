#include "Library/VornElogBaseLib/MachineCheckClass.h"

#include "Include/McaRegisters.h"

namespace {

struct CLASS_RULE {
    UINT64 Looked;  // bits that the rule looks at
    UINT64 Set;     // those of them that must be set
    MCE_CLASS Class;
};

constexpr UINT64 PCC = McaStatus::PCC::Mask;
constexpr UINT64 UC = McaStatus::UC::Mask;
constexpr UINT64 TCC = McaStatus::TCC::Mask;
constexpr UINT64 DEFERRED = McaStatus::Deferred::Mask;
constexpr UINT64 TRANSPARENT_ERROR = McaStatus::Transparent::Mask;

// Exactly one rule holds for any status.
constexpr CLASS_RULE RULES[] = {
    {PCC, PCC, MceClassPccFatal},
    {PCC | UC | TCC, UC | TCC, MceClassUcThreadFatal},
    {PCC | UC | TCC, UC, MceClassUcThreadRecoverable},
    {PCC | UC | DEFERRED, DEFERRED, MceClassDeferred},
    {PCC | UC | DEFERRED | TRANSPARENT_ERROR, 0, MceClassCorrected},
    {PCC | UC | DEFERRED | TRANSPARENT_ERROR, TRANSPARENT_ERROR, MceClassTransparent},
};

}  // namespace

MCE_CLASS VornGetMceClass(UINT64 McaStatus) {
    MCE_CLASS Class = MceClassInvalid;
    for (const CLASS_RULE& Rule : RULES) {
        if ((McaStatus & Rule.Looked) == Rule.Set) {
            Class = Rule.Class;
        }
    }
    return Class;
}
