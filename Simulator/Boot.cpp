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
    Everything->BlocksAtBoot = Here.SmmPool.Statistics().LiveBlocks;
    Everything->Hardware.ThrowPendingFault();
    return Status;
}

EFI_STATUS Simulation::Reboot() {
    State& Old = *Everything;
    const Configuration Settings = Old.Platform.Settings;
    Journal Events = std::move(Old.Events);
    auto Clock = Old.Hardware.SwitchOff();
    auto BadRows = Old.Hardware.Dram().TakeBadRows();
    auto Repairs = Old.Platform.Repair.TakeStored();
    auto Pins = Old.Platform.Dram.TakePins();
    auto Sel = Old.Platform.Events.TakeSel();
    auto Logged = Old.Platform.Apei.TakeLogged();

    Everything.reset();  // one machine at a time
    Everything = std::make_unique<State>(Settings);
    State& New = *Everything;
    New.Events = std::move(Events);
    New.Hardware.SwitchOn(std::move(Clock));
    New.Hardware.Dram().PutBadRows(std::move(BadRows));
    New.Platform.Repair.CarryOut(std::move(Repairs));
    New.Platform.Dram.PutPins(std::move(Pins));
    New.Platform.Events.PutSel(std::move(Sel));
    New.Platform.Apei.PutLogged(std::move(Logged));
    return Boot();
}

}  // namespace Simulator
