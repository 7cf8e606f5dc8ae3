// The driver's initialiser and what only it sets up.
#pragma once

#include "Include/LinkedList.h"
#include "Platform/Services.h"

// Heads of the lists that carry a bank's data to the builder of processor records; empty between calls, NULL
// when their allocation failed.
extern LIST_ENTRY* mCperProcErrInfoListHead;
extern LIST_ENTRY* mCperProcCtxInfoListHead;

// Levels under which the driver's own traces print.
extern UINT64 mSerDbgLevelConstructor;
extern UINT64 mSerDbgLevel;
extern UINT64 mSerDbgLevelDetailed;

// Software-SMI value by which the OS asks for the DPC configuration of a root port.
inline constexpr UINT64 DPC_CFG_IIO_PCIE_ERRCOR_SWSMI = 0xD8;

// Binds the driver to its services, completes the CPU map and registers every handler. Only a missing platform
// APEI data record, RAS service or RAS initialisation data and a refused DPC configuration SMI end it early;
// every other failure is traced and absorbed, and the status is that of the ready-to-boot registration.
EFI_STATUS KyrPlatformRasQtzSmmInit(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

// Fills APIC ID and CPUID leaf 1 of every processor in RasCpuMap. A processor that does not answer keeps zeros.
// EFI_NOT_FOUND without RAS initialisation data.
EFI_STATUS PatchCpuInfoWithApThreadData();

// Arms SCI generation on the FCH's software-SCI event 22.
void RasSciInit();

// Enables error injection through the PSP where the platform supports it. EFI_NOT_FOUND without a PSP mailbox;
// an injection mode of 0 is no error.
EFI_STATUS RasEnablePspEinj();
