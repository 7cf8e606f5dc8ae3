// The protocol tables that the firmware publishes, one accessor a table. Each lives as long as the program.
#pragma once

#include "Platform/Protocol/RasService.h"
#include "Platform/Protocol/RuntimePpr.h"
#include "Platform/Protocol/SiliconServices.h"
#include "Platform/Protocol/SmmBase2.h"
#include "Platform/Protocol/SmmCpuService.h"
#include "Platform/Protocol/SwDispatch.h"
#include "Platform/Protocol/VendorServices.h"

namespace Simulator {

KYR_RAS_SERVICE_SMM_PROTOCOL* RasServiceTable();

EFI_SMM_SW_DISPATCH2_PROTOCOL* SwDispatchTable();
FCH_SMM_SW_DISPATCH2_PROTOCOL* FchSwDispatchTable();
FCH_SMM_APU_RAS_DISPATCH_PROTOCOL* ApuRasDispatchTable();

EFI_SMM_BASE2_PROTOCOL* SmmBase2Table();
EFI_SMM_CPU_SERVICE_PROTOCOL* SmmCpuServiceTable();
void* SmmVariableTable();

KYR_PCD_PROTOCOL* PcdTable();
KYR_TALVO_CONFIG_PROTOCOL* TalvoConfigTable();
KYR_PSP_RAS_EINJ_PROTOCOL* PspRasEinjTable();
KYR_FABRIC_REGISTER_PROTOCOL* FabricRegisterTable();

VORN_ATTRIBUTE_SMM_PROTOCOL* AttributeTable();
VORN_MANUFACTURING_MODE_PROTOCOL* ManufacturingModeTable();
VORN_MEMORY_INTERFACE_SMM_PROTOCOL* MemoryInterfaceTable();
VORN_KYR_MEMORY_PPR_SMM_PROTOCOL* MemoryPprTable();
inline constexpr unsigned OEM_RAS_INSTANCES_MAX = 4;
KYR_JRV_RAS_OEM_SMM_PROTOCOL* OemRasTable(unsigned Instance);
VORN_PCI_SLOT_DATA_SMM_PROTOCOL* PciSlotDataTable();

VORN_ELOG_IPMI_SMM_PROTOCOL* ElogIpmiTable();
VORN_SMM_SEL_RECORD_PROTOCOL* SelRecordTable();
VORN_SMM_IPMI_SEL_SUPPORT_PROTOCOL* SelSupportTable();
VORN_APEI_LOGGING_SMM_PROTOCOL* ApeiLoggingTable();

}  // namespace Simulator
