// Exported frames of the flash calls: image updates (with the check that the
// file exists), region saves and image file queries.
#include "frame.h"

extern "C" {

// The flag keeps VTAPI_DidConfigChange from polling the adapters while
// their flash is rewritten.
VTAPI_EXPORT uint32_t VTAPI_doOptionROMUpdate(const ProtocolEntry *port, const char *fileName, uint32_t options) {
    ProfilerEnterFunction("VTAPI_doOptionROMUpdate");
    gFlashUpdateInProgress = 1;
    const uint32_t frameStatus = VTAPI_FILE_CALL(fileName, FC_doOptionROMUpdate(port, fileName, options));
    gFlashUpdateInProgress = 0;
    VTAPI_RETURN_FRAMED(VTAPI_doOptionROMUpdate, frameStatus);
}

VTAPI_EXPORT uint32_t VTAPI_UpdateAdapterFirmwareTableFromFile(const ProtocolEntry *port, const char *fileName) {
    VTAPI_FILE_FRAME(VTAPI_UpdateAdapterFirmwareTableFromFile, fileName, FC_UpdateAdapterFirmwareTableFromFile, port,
                     fileName);
}

VTAPI_EXPORT uint32_t VTAPI_UpdateSpecificFlashRegionFromFile(const ProtocolEntry *port, const char *fileName,
                                                              uint32_t region) {
    VTAPI_FILE_FRAME(VTAPI_UpdateSpecificFlashRegionFromFile, fileName, FC_UpdateSpecificFlashRegionFromFile, port,
                     fileName, region);
}

VTAPI_EXPORT uint32_t VTAPI_UpdateAdapterMpiCfgFromDatFile(const ProtocolEntry *port, const char *fileName) {
    VTAPI_FILE_FRAME(VTAPI_UpdateAdapterMpiCfgFromDatFile, fileName, FC_UpdateAdapterMpiCfgFromDatFile, port, fileName);
}

VTAPI_EXPORT uint32_t VTAPI_UpdateAdapterPEPCfgFromFile(const ProtocolEntry *port, const char *fileName) {
    VTAPI_FILE_FRAME(VTAPI_UpdateAdapterPEPCfgFromFile, fileName, FC_UpdateAdapterPEPCfgFromFile, port, fileName);
}

VTAPI_EXPORT uint32_t VTAPI_SaveAdapterSerdesRegionToFile(const ProtocolEntry *port, const char *fileName) {
    VTAPI_FRAME(VTAPI_SaveAdapterSerdesRegionToFile, FC_SaveAdapterSerdesRegionToFile, port, fileName);
}

VTAPI_EXPORT uint32_t VTAPI_SaveAdapterFirmwareTableToFile(const ProtocolEntry *port, const char *fileName) {
    VTAPI_FRAME(VTAPI_SaveAdapterFirmwareTableToFile, FC_SaveAdapterFirmwareTableToFile, port, fileName);
}

VTAPI_EXPORT uint32_t VTAPI_SaveAdapterMpiCfgToDatFile(const ProtocolEntry *port, const char *fileName) {
    VTAPI_FRAME(VTAPI_SaveAdapterMpiCfgToDatFile, FC_SaveAdapterMpiCfgToDatFile, port, fileName);
}

VTAPI_EXPORT uint32_t VTAPI_FCGetFlashImageVersion(const ProtocolEntry *port, const char *fileName,
                                                   VTAPI_FlashImageVersion *version) {
    VTAPI_FILE_FRAME(VTAPI_FCGetFlashImageVersion, fileName, FC_GetFlashImageVersion, port, fileName, version);
}

VTAPI_EXPORT uint32_t VTAPI_FCGetFlashImageSupportedAdapters(const char *fileName, VTAPI_FlashImageAdapters *adapters) {
    VTAPI_FILE_FRAME(VTAPI_FCGetFlashImageSupportedAdapters, fileName, FC_GetFlashImageSupportedAdapters, fileName,
                     adapters);
}

VTAPI_EXPORT uint32_t VTAPI_GetAdapterFlashMemoBlock(const ProtocolEntry *port, void *buffer, uint32_t *size) {
    VTAPI_FRAME(VTAPI_GetAdapterFlashMemoBlock, FC_GetAdapterFlashMemoBlock, port, buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_SfpModuleFirmwareUpdate(const ProtocolEntry *port, const char *fileName) {
    VTAPI_FILE_FRAME(VTAPI_SfpModuleFirmwareUpdate, fileName, FC_SfpModuleFirmwareUpdate, port, fileName);
}

}  // extern "C"
