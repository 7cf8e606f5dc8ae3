// The section bodies that the record decoder reads.
#pragma once

#include "Simulator/Decode/ByteReader.h"

namespace Simulator {

// IA32/X64 processor error section (UEFI 2.10, N.2.4.2).
std::vector<DecodedItem> DecodeProcessorSection(Bytes Section);
// Platform memory error section (UEFI 2.10, N.2.5).
std::vector<DecodedItem> DecodeMemorySection(Bytes Section);
// PCI Express error section (UEFI 2.10, N.2.7).
std::vector<DecodedItem> DecodePcieSection(Bytes Section);
// CXL protocol error and component event sections (UEFI 2.10, N.2.13 and N.2.14).
std::vector<DecodedItem> DecodeCxlProtocolSection(Bytes Section);
std::vector<DecodedItem> DecodeCxlComponentSection(Bytes Section);

// A register of the machine-check bank whose block of MSRs holds this address, with its bits in words. Empty name
// for an MSR outside the banks.
DecodedItem DecodeBankRegister(std::uint32_t Msr, std::uint64_t Value);
// What a machine-check error code (MCA_STATUS 15:0) says, in words.
std::string DescribeErrorCode(std::uint16_t ErrorCode);
// What an MCA_STATUS says about its error, in words: "corrected, data cache level 1 read".
std::string DescribeMcaStatus(std::uint64_t Status);

}  // namespace Simulator
