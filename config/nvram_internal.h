// Helpers shared by the NVRAM configuration sources.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hbaparam_table.h"
#include "vtapi.h"

namespace vt::config {

// A field of the HBA-parameters record, widened.
uint32_t GetField(const VTAPI_HBAParams &record, const RecordField &field);
// NVRAM image size of the port: 256 bytes below chip type 8, else 512.
uint32_t NvramSizeOf(const SDMDevice *device);
// The port's model name without padding ("Unknown" when it has none).
std::string ModelOf(const SDMDevice *device);
// "xx:xx:xx:xx:xx:xx:xx:xx".
std::string WwnText(const uint8_t *wwn);
// The port's condition bits (SD_PORTFLAG_*), read afresh.
uint32_t PortFlagsOf(const SDMDevice *device);
// The "no adapter" result: its text in the error buffer, 8.
uint32_t NoAdapter();
// Whether the port may be written: 0, or 286 (virtual port) / 66
// (maintenance mode, lockdown) with the message in the error buffer.
uint32_t CheckWritable(const SDMDevice *device);
// A libvtsdm write refusal as the worker reports it: SDERR_LOCKDOWN and a
// maintenance refusal become 66 with their message, others pass through.
uint32_t WriteRefusal(const SDMDevice *device, uint32_t sdStatus);
// The file a user hands in for a port that must be writable: 0, or the
// port's refusal, or 2 when the file cannot be read (text in the buffer).
uint32_t ReadInputFile(const SDMDevice *device, const char *file, std::vector<uint8_t> &data);
// Reads NVRAM area `area` (1 or 2) of the port, its own size; a libvtsdm
// status.
uint32_t ReadNvramImage(const SDMDevice *device, uint32_t area, std::vector<uint8_t> &image);
// One NVRAM variable of an image of the port (0xFFFFFFFF when it has none).
uint32_t Variable(const SDMDevice *device, const std::vector<uint8_t> &image, uint32_t id);
// Progress line on the console ("Updating ... Please wait...").
void Progress(const char *format, ...) __attribute__((format(printf, 1, 2)));
// Whether the host boots by EFI (/sys/firmware/efi).
bool EfiHost();

}  // namespace vt::config
