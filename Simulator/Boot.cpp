// Starting the driver. Apart from the rest of the simulation, so that a test without the driver links without it.
#include "PlatformRas/Qtz/Smm/ModuleEntry.h"
#include "Simulator/SimulationState.h"

namespace Simulator {

EFI_STATUS Simulation::Boot() {
    Simulator::Firmware& Here = Everything->Platform;
    // The image handle is a name like any other; no two images share one.
    const auto ImageHandle = reinterpret_cast<EFI_HANDLE>(std::uintptr_t{0x100});
    Here.LoadImage();
    const EFI_STATUS Status = _ModuleEntryPoint(ImageHandle, Here.SystemTable());
    if (EFI_ERROR(Status)) {
        Here.UnloadImage();
    }
    Here.FinishBoot();
    Everything->Hardware.ThrowPendingFault();
    return Status;
}

}  // namespace Simulator
