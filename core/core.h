/*
 * core/core.h - the shared core of libvtapifconly: device lists, targets
 * and LUNs, the AdapterList, the adapter entry tree, discovery,
 * classification and the core's start-up.  Functions marked VTAPI_EXPORT
 * are exported so that a program may replace them; the others are internal
 * to the library.
 */
#ifndef VT_CORE_CORE_H
#define VT_CORE_CORE_H

#include <stdint.h>

#include "oss/oss.h"
#include "vtapi.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef SDMDevice TarnDevice;

/* -------------------------------------------------- classification */
VTAPI_EXPORT uint32_t GetISPType(const SDMDevice *device);
VTAPI_EXPORT uint32_t CoreGetISPType(const SDMDevice *device);
VTAPI_EXPORT uint32_t GetAdapterFunctionType(uint16_t deviceId);
VTAPI_EXPORT uint32_t GetISP4GbType(const SDMDevice *device);
VTAPI_EXPORT uint32_t GetISP8GbType(const SDMDevice *device);
VTAPI_EXPORT uint32_t GetISP4GbOrNewerType(const SDMDevice *device);
VTAPI_EXPORT uint32_t isVirtualPortHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isFCOeHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isFCoECNA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isTernHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isTernAdapter(const AdapterNode *node);
VTAPI_EXPORT uint32_t isOrlaHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isOrlaAdapter(const AdapterNode *node);
VTAPI_EXPORT uint32_t isOrlaCNA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isToveHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isPallasHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isKiteHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isWren16GHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isWren32GHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isWrenHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isSkiff16GHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isSkiff32GHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isSkiffHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isMezz16GHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isMezz32GHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t is16GN4FCOnlyHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isJintoHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isTargetModeEP(const SDMDevice *device);
VTAPI_EXPORT uint32_t isAdapterLRType(const SDMDevice *device);
VTAPI_EXPORT uint32_t is64GbAdapter(const SDMDevice *device);
VTAPI_EXPORT uint32_t isEDCUpdateSupported(const SDMDevice *device);
VTAPI_EXPORT uint32_t isCNAWithLROptionEnable(const SDMDevice *device);
uint32_t isOEMModelSuffixHBA(const SDMDevice *device);
uint32_t isSingleBIOSHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t isDriverWithSupportedSpeed(const SDMDevice *device);
VTAPI_EXPORT uint32_t isEsxDriverWithSupportedSpeed(const SDMDevice *device);
VTAPI_EXPORT uint32_t GetNumberOfPortsOnThisHBA(const SDMDevice *device);
VTAPI_EXPORT uint32_t GetPortIndex(const SDMDevice *device);
VTAPI_EXPORT uint32_t GetAdapterPciPhysicalPortNumber(SDMDevice *device);
VTAPI_EXPORT uint32_t ConvertPortSpeedToDecimal(uint32_t code);

/* -------------------------------------------------------- device lists */
VTAPI_EXPORT SDMDeviceList *GetDeviceList(void);
VTAPI_EXPORT SDMDeviceList *GetMyDeviceList(void);
VTAPI_EXPORT SDMDevice *CreateNewSDMDevice(uint32_t handle, uint32_t instance);
uint32_t AddDeviceToDeviceList(SDMDevice *device);
VTAPI_EXPORT uint32_t RemoveAllDevicesFromDeviceList(void);
VTAPI_EXPORT SDMDeviceList *CloneCopySDMDeviceList(void);
VTAPI_EXPORT void CloneFreeTarnDeviceList(SDMDevice *chain);
void FreeSDMDevice(SDMDevice *device);
VTAPI_EXPORT SDMDevice *GetSDMDevice(const void *record);
VTAPI_EXPORT uint32_t CopyToVTAPISDMDevice(SDMDevice *destination, const SDMDevice *source);
VTAPI_EXPORT const char *GetAdapterSerialNo(const SDMDevice *device);
VTAPI_EXPORT char *GetStringWWN(const uint8_t *wwn, char *text);
VTAPI_EXPORT char *GetStringPortID(const uint8_t *portId, char *text);
VTAPI_EXPORT uint32_t GetPhyPortNumber(const SDMDevice *device);
VTAPI_EXPORT uint32_t IsWwpnValid(const uint8_t *wwpn);
VTAPI_EXPORT uint32_t CoreIsDriverWithRemotePortInfoSupport(const SDMDevice *device);
uint32_t CoreIsAenSupported(const SDMDevice *device);

/* Targets and LUNs.  List functions return 0, -1 for a missing or
 * duplicate item, 8 for a null argument. */
VTAPI_EXPORT void InitTargetList(TargetList *list);
VTAPI_EXPORT void FreeTargetList(TargetList *list);
VTAPI_EXPORT void InitLunList(LunList *list);
VTAPI_EXPORT void FreeLunList(LunList *list);
uint32_t CopyTargetList(TargetList *destination, const TargetList *source);
VTAPI_EXPORT TargetEntry *CreateNewTarget(void);
VTAPI_EXPORT int32_t DeleteTarget(TargetList *list, TargetEntry *target);
VTAPI_EXPORT void RemoveAllTargetsFromTargetList(TargetList *list);
VTAPI_EXPORT int32_t AddTargetToTargetList(TargetList *list, TargetEntry *target);
VTAPI_EXPORT TargetEntry *FindTargetInTargetList(TargetList *list, const TargetEntry *target);
VTAPI_EXPORT TargetEntry *FindTargetInTargetListPrim(TargetList *list, const TargetEntry *target);
VTAPI_EXPORT TargetEntry *FindTargetByWWNNInTargetList(TargetList *list, const uint8_t *wwnn);
VTAPI_EXPORT TargetEntry *FindTargetByWWNNAndWWPNInTargetList(TargetList *list, const uint8_t *wwnn,
                                                              const uint8_t *wwpn);
VTAPI_EXPORT TargetEntry *FindTargetByWWNNAndWWPNOrPortIdInTargetList(TargetList *list, const uint8_t *wwnn,
                                                                      const uint8_t *wwpn, const uint8_t *portId);
VTAPI_EXPORT uint32_t CheckAndAddNewTargets(SDMDevice *device);
VTAPI_EXPORT LunEntry *CreateNewLun(void);
VTAPI_EXPORT int32_t DeleteLun(LunList *list, LunEntry *lun);
VTAPI_EXPORT void RemoveAllLunsFromLunList(LunList *list);
VTAPI_EXPORT int32_t AddLunToLunList(LunList *list, LunEntry *lun);
VTAPI_EXPORT LunEntry *FindLunInLunList(LunList *list, uint16_t lunNumber);
/* Rebuilds the LUN list of one target over SCSI: 0 when a LUN was added. */
VTAPI_EXPORT int32_t RetrieveLunsForTarget(SDMDevice *device, TargetEntry *target);
VTAPI_EXPORT uint32_t RetrieveTargetDataForTargets(SDMDevice *device);
VTAPI_EXPORT uint32_t RetrieveLunDataForTargets(SDMDevice *device);
VTAPI_EXPORT uint32_t RetrievePathInfoForTargets(SDMDevice *device);
VTAPI_EXPORT uint32_t RetrieveSerialNumberForTarget(SDMDevice *device, TargetEntry *target, char *serial,
                                                    uint32_t size);
VTAPI_EXPORT uint32_t RetrieveWWULunNumberForLun(SDMDevice *device, TargetEntry *target, LunEntry *lun);
VTAPI_EXPORT uint32_t GetSingleTargetsOSMapping(SDMDevice *device, TargetEntry *target, LunEntry *lun);
/* 0 when ready; *passive is set to 1 for a passive (standby) path. */
VTAPI_EXPORT uint32_t CheckLunReady(SDMDevice *device, TargetEntry *target, uint16_t lunNumber, uint32_t *passive);
VTAPI_EXPORT uint32_t CheckTargetReady(SDMDevice *device, TargetEntry *target);

/* ---------------------------------------------------------- AdapterList */
VTAPI_EXPORT void InitAdapterList(void);
VTAPI_EXPORT AdapterNode *GetAdapterList(void);
VTAPI_EXPORT uint32_t GetCountOfEntryInAdapterList(void);
VTAPI_EXPORT AdapterNode *CreateNewAdapter(void);
VTAPI_EXPORT int32_t AddNewAdapterToAdapterList(AdapterNode *node);
VTAPI_EXPORT AdapterNode *FindAdapterInAdapterList(AdapterNode *node);
VTAPI_EXPORT AdapterNode *FindAdapterInAdapterListBySDMDevice(const SDMDevice *device);
VTAPI_EXPORT AdapterNode *FindAdapterInAdapterListByWWN(const uint8_t *wwnn, const uint8_t *wwpn);
VTAPI_EXPORT AdapterNode *FindVirtualPortInAdapterListByVPortID(uint32_t instance, uint32_t vportId);
VTAPI_EXPORT AdapterNode *FindPhysicalPortByVirtualPortInAdapterList(const AdapterNode *vport);
VTAPI_EXPORT AdapterNode *FindPhysicalAdapterEntryByVirtualPortInAdapterList(const AdapterNode *vport);
VTAPI_EXPORT SDMDevice *FindDeviceInDeviceListByAdapterEntry(const AdapterNode *node);
VTAPI_EXPORT uint32_t DeleteAdapter(AdapterNode *node);
VTAPI_EXPORT int32_t DeleteAdapterNodeFromAdapterList(AdapterNode *node);
VTAPI_EXPORT void RemoveAllAdaptersFromAdapterList(void);
VTAPI_EXPORT void SortVirtualPortArray(void *array, uint32_t count, uint32_t key);
VTAPI_EXPORT int ComparePortName(const void *a, const void *b);
VTAPI_EXPORT int ComparePortID(const void *a, const void *b);
VTAPI_EXPORT int CompareVportId(const void *a, const void *b);
VTAPI_EXPORT int CompareInstanceNumber(const void *a, const void *b);
VTAPI_EXPORT uint32_t UpdateAdapterEntryInAdapterList(const SDMDevice *device);
VTAPI_EXPORT uint32_t UpdateAdapterEntryNodeInAdapterList(AdapterNode *node);
VTAPI_EXPORT uint32_t UpdateAllAdapterEntryNodesInAdapterList(void);
VTAPI_EXPORT uint32_t UpdatePhysicalAdapterEntryByVirtualPortInAdapterList(const AdapterNode *vport);
VTAPI_EXPORT uint32_t UpdatePhysicalAdapterEntryVportArray(AdapterNode *physical);
VTAPI_EXPORT uint32_t DeletevPortInAdapterList(const uint8_t *vportWwpn);
VTAPI_EXPORT uint32_t UpdateAdapterEntryVportList(void);
VTAPI_EXPORT uint32_t CreateAdapterEntryFromSDMDevice(AdapterNode *node, SDMDevice *device);
VTAPI_EXPORT uint32_t GetDeviceMaxVportsSupportQOS(const SDMDevice *device);
VTAPI_EXPORT SDMDevice *FindVPortByVPortID(uint32_t instance, uint32_t index);
VTAPI_EXPORT SDMDevice *FindVMwareVirtualPort(uint32_t instance, uint32_t index);
VTAPI_EXPORT SDMDevice *FindSDMAPIAdapterByWWPN(const uint8_t *wwpn);
VTAPI_EXPORT uint32_t SetMaxSupportedVPortsByDriver(const SDMDevice *device);
VTAPI_EXPORT const char *GetAdapterStatus(const SDMDevice *device, char *text);

/* -------------------------------------------------- adapter entry tree */
VTAPI_EXPORT AdapterEntryList *core_CreateAdapterEntryList(void);
VTAPI_EXPORT AdapterEntry *core_CreateAdapterEntry(void);
VTAPI_EXPORT PhyPortList *core_CreatePhyPortList(void);
VTAPI_EXPORT PhyPortEntry *core_CreatePhyPortEntry(void);
VTAPI_EXPORT ProtocolList *core_CreateProtocolList(void);
VTAPI_EXPORT ProtocolEntry *core_CreateProtocolEntry(void);
void core_ZeroAdapterEntryListMem(AdapterEntryList *list);
void core_ZeroPhyPortListMem(PhyPortList *list);
void core_ZeroProtocolListMem(ProtocolList *list);
VTAPI_EXPORT void core_FreeAdapterList(AdapterEntryList *list);
VTAPI_EXPORT void core_FreePhyPortList(PhyPortList *list);
VTAPI_EXPORT void core_FreeProtocolList(ProtocolList *list);
VTAPI_EXPORT AdapterEntry *FindAdapterEntryUsingSerialNo(AdapterEntryList *list, const char *serial);
VTAPI_EXPORT uint32_t BuildAdapterInfoForFC(AdapterEntryList *list);
VTAPI_EXPORT uint32_t GetHBAOptionROMVersions(const SDMDevice *device, AdapterEntry *entry);
void DumpAdapterEntryList(const AdapterEntryList *list);

/* ----------------------------------------------------------- discovery */
VTAPI_EXPORT extern uint32_t g_ResourcesDeallocated;
VTAPI_EXPORT uint32_t CoreInitializeDevices(void);
VTAPI_EXPORT uint32_t CoreReinitializeDevices(uint32_t flag);
VTAPI_EXPORT uint32_t TarnReinitializeDevices(void);
VTAPI_EXPORT uint32_t BuildTarnDevices(void);
VTAPI_EXPORT SDMDevice *SortAdapterList(SDMDeviceList *deviceList);
VTAPI_EXPORT SDMDevice *BuildTarnDeviceList(SDMDevice *chain);
VTAPI_EXPORT uint32_t BuildAdapterEntryList(SDMDevice *chain);
VTAPI_EXPORT int FindLocationInList(const SDMDevice *listed, const SDMDevice *candidate, uint32_t byPortId);
VTAPI_EXPORT int FindLocationInAdapterEntryList(const AdapterNode *listed, const AdapterNode *candidate);
VTAPI_EXPORT int32_t AddAdapterToAdapterList(AdapterNode *node);
VTAPI_EXPORT uint32_t FreeMyDeviceList(uint32_t all);
VTAPI_EXPORT uint32_t UpdatePhysicalPortNumbers(void);
VTAPI_EXPORT SDMDevice *AddVirtualPortsToAdapterList(SDMDevice *chain);
VTAPI_EXPORT uint32_t DetectLinuxVmWareDriver(void);
VTAPI_EXPORT uint32_t CoreUpdateFabricWWN(void);
VTAPI_EXPORT uint32_t CoreInitializeTargets(void);
VTAPI_EXPORT uint32_t RetrieveRemotePortInfoForTargets(SDMDevice *device);
VTAPI_EXPORT uint32_t RetrieveSecureInfoForTargets(SDMDevice *device);
VTAPI_EXPORT uint32_t CoreGetTargestLUNDiscoveryOption(void);
VTAPI_EXPORT void CoreSetTargetLUNDiscoveryOption(uint32_t enable);
VTAPI_EXPORT uint32_t CoreUpdateLunOSDeviceName(SDMDevice *device);
VTAPI_EXPORT uint32_t updateModelStrForSingleBIOSHBA(SDMDevice *device);
VTAPI_EXPORT uint32_t UpdateAdapterEntryList(SDMDevice *device);
VTAPI_EXPORT uint32_t UpdateHBAVersionForOEM(SDMDevice *device);
VTAPI_EXPORT uint32_t AddjustVirtualPortsQoS(SDMDevice *device);
VTAPI_EXPORT uint32_t CreateUservSANs(void);
VTAPI_EXPORT uint32_t TarnGetFabricScanningOption(void);
VTAPI_EXPORT uint32_t getHostSystemType(void);

/* --------------------------------------------------- the core's start-up */
VTAPI_EXPORT extern uint32_t g_AuxToolId;
VTAPI_EXPORT extern char g_ToolVersion[32];
extern char g_configurationFileName[260]; /* the agent's properties file */
VTAPI_EXPORT uint32_t CorePreInitialize(void);
VTAPI_EXPORT uint32_t CoreInitialize(void);
VTAPI_EXPORT uint32_t CoreUninitialize(void);
VTAPI_EXPORT uint32_t CoreSetToolId(uint32_t id);
VTAPI_EXPORT uint32_t CoreSetToolVersion(uint32_t v1, uint32_t v2, uint32_t v3, uint32_t v4);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
#include <string>

namespace vt::core {

// The libvtsdm backend that answers ("sim", "linux") and one line on where
// its data comes from; both empty when no backend could be made.
struct DeviceBackend {
    std::string name;
    std::string description;
};
DeviceBackend GetDeviceBackend();

}  // namespace vt::core
#endif

#endif /* VT_CORE_CORE_H */
