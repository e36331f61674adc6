/*
 * vtapi.h - management interface for Vantor Fibre Channel host bus adapters
 * (libvtapifconly).
 *
 * A front end calls VTAPI_Initialize once, walks the adapter tree under
 * gpAdapterList (one AdapterEntry per card, its PhyPortEntry records, and
 * their ProtocolEntry records, each holding a full copy of the port's
 * SDMDevice), makes other VTAPI_ calls, and ends with VTAPI_Uninitialize.
 * The tree stays owned by the library; records a call allocates for the
 * caller are released with VTAPI_FreeMem.  The calling process must be root.
 *
 * The library's named functions are exported under their plain names and
 * every call between them goes through the dynamic symbol table, so a
 * program may replace any of them.  This header needs only libvtsdm's
 * records (vtsdm_types.h); a front end does not call libvtsdm itself.
 */
#ifndef VTAPI_H
#define VTAPI_H

#include <stdint.h>

#include "vtsdm_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VTAPI_EXPORT __attribute__((visibility("default")))

/* ---------------------------------------------------------------- status */
#define VTAPI_SUCCESS                                      0u
#define VTAPI_SDMGT_NONE                                   0u
#define VTAPI_INVALID_ARGUMENT                             2u
#define VTAPI_FILE_NOT_FOUND                               3u
#define VTAPI_OPTION_ROM_UPDATE_FAILED                     6u
#define VTAPI_DEVICE_NUMBER_NOT_FOUND                      12u
#define VTAPI_FILE_CORRUPTED                               13u
#define VTAPI_INVALID_ILT_HEADER                           25u
#define VTAPI_NOT_SUPPORTED_ON_VPORT                       29u
#define VTAPI_FUNCTION_NOT_APPLICABLE                      36u
#define VTAPI_OPTION_NOT_SUPPORTED                         113u
#define VTAPI_PORT_NOT_FOUND                               114u
#define VTAPI_FLASH_LOCKDOWN                               133u
#define VTAPI_TARGET_NOT_FOUND                             139u
#define VTAPI_MAINTENANCE_MODE                             150u
#define VTAPI_REBOOT_REQUIRED                              201u
#define VTAPI_UPDATE_ERROR_VALIDATE_FLASH_IMAGE_COMPONENTS 522u
#define VTAPI_GENERAL_FAILURE                              0xFFFFFFFFu

/* Capacity words of a LUN whose size is unknown. */
#define VTAPI_CAPACITY_UNKNOWN32 0xFEFEFEFEu
#define VTAPI_CAPACITY_UNKNOWN64 0xFEFEFEFEFEFEFEFEull

/* ------------------------------------------------------ targets and LUNs */
typedef struct LunEntry {
    uint16_t LunNumber;
    uint8_t PeripheralType; /* low five bits of INQUIRY byte 0 */
    uint8_t Reserved0;
    char VendorProduct[24]; /* INQUIRY vendor (8) and product (16) */
    char Revision[4];
    uint32_t BlockSize;   /* capacity words: VTAPI_CAPACITY_UNKNOWN32 */
    uint32_t LastBlock32; /*   while unknown */
    uint64_t LastBlock64; /* VTAPI_CAPACITY_UNKNOWN64 while unknown */
    uint8_t WWULN[16];    /* world-wide unique LUN name (NAA) */
    char OSDeviceName[256];
    uint32_t PassivePath; /* 1 for a passive path */
    struct LunEntry *next;
} LunEntry;

typedef struct LunList {
    uint32_t Count;
    LunEntry *First;
    LunEntry *Last;
} LunList;

typedef struct TargetEntry {
    uint8_t WWNN[8];
    uint8_t WWPN[8];
    uint8_t PortId[3];
    uint8_t Reserved0;
    SDDiscTargetProperty DiscTargetProperty;
    uint32_t TargetFlags;
    uint8_t PeripheralType;
    uint8_t Reserved1[3];
    char VendorId[8];
    char ProductId[16];
    uint32_t PortTypeWord; /* 0 FCP, 1 NVMe */
    LunList Luns;
    struct TargetEntry *next;
} TargetEntry;

typedef struct TargetList {
    uint32_t Count;
    TargetEntry *First;
    TargetEntry *Last;
} TargetList;

/* ------------------------------------------------------------- SDMDevice */
/* One FC port function (physical or virtual) as libvtsdm reports it. */
typedef struct SDMDevice {
    /* header */
    uint32_t DeviceHandle;
    uint32_t Instance;
    uint32_t NotificationStatus; /* event summary bits */
    uint32_t Reserved0;
    SDChipProperty DeviceChipProperty;
    SDDriverProperty DeviceDriverProperty;
    SDNodeProperty DeviceNodeProperty;
    SDPortProperty DevicePortProperty;
    SDStatistics DeviceStatistics;
    uint32_t DeviceFlashSequenceNumber;
    uint8_t DeviceInitialNVRAM[512];
    uint8_t DeviceCurrentNVRAM[512];
    TargetList Targets;
    uint32_t VPortQoSValue;
    uint32_t VPortQoSType;
    uint32_t PortAttribute;
    uint32_t Reserved1;
    struct SDMDevice *next;
    struct SDMDevice *prev;
} SDMDevice;

typedef struct SDMDeviceList {
    uint32_t Count;
    SDMDevice *First;
    SDMDevice *Last;
} SDMDeviceList;

/* ----------------------------------------------------------- AdapterNode */
#define VTAPI_MAX_VPORTS 126

typedef struct AdapterNode {
    uint32_t Instance;
    uint32_t PhysicalPort;
    uint32_t DeviceHandle;
    uint8_t Reserved0;
    uint8_t PciDeviceNumber;
    uint8_t PciBusNumber;
    uint8_t PciFunctionNumber;
    uint32_t PortAttribute;
    uint32_t Enable;
    uint16_t ChipClass; /* 1 below ISP type 8, else 2 */
    uint16_t VPortId;
    uint16_t SubVendorID;
    uint16_t SubSystemID;
    uint16_t DeviceID;
    uint16_t ChipRevision;
    uint16_t Reserved1;
    uint8_t WWNN[8];
    uint8_t WWPN[8];
    uint8_t EnodeMAC[6];
    char Model[32];
    char SerialNumber[32];
    char WWPNText[24];
    char WWNNText[24];
    char Description[128];
    uint8_t PortId[3];
    uint16_t Interface;
    uint16_t Reserved2; /* always 0xFFFF */
    int16_t QoSType;
    uint16_t Reserved3;
    uint16_t QoSState[2];
    uint16_t QoSValue;
    uint32_t PortSpeed; /* Gb/s, virtual ports only */
    uint8_t *VPortWWPN[VTAPI_MAX_VPORTS];
    char Status[32];
    uint16_t VendorID;
    uint8_t ListFlag; /* always 2 */
    struct AdapterNode *next;
    struct AdapterNode *prev;
} AdapterNode;

/* ----------------------------------------------------- adapter entry tree */
#define VTAPI_PROTOCOL_FC   0u
#define VTAPI_PROTOCOL_FCOE 1u

typedef struct ProtocolEntry {
    uint8_t WWNN[8];
    uint8_t WWPN[8];
    SDMDevice Device; /* private copy, with its own targets */
    uint8_t PciBusNumber;
    uint8_t PciDeviceNumber;
    uint8_t PciFunctionNumber;
    uint32_t ProtocolType;
    struct ProtocolEntry *next;
} ProtocolEntry;

typedef struct ProtocolList {
    uint32_t Count;
    ProtocolEntry *First;
    ProtocolEntry *Last;
} ProtocolList;

typedef struct PhyPortEntry {
    uint8_t PhysicalPortNumber;
    uint8_t PciBusNumber;
    uint8_t PciDeviceNumber;
    ProtocolList Protocols;
    struct PhyPortEntry *next;
} PhyPortEntry;

typedef struct PhyPortList {
    uint32_t Count;
    PhyPortEntry *First;
    PhyPortEntry *Last;
} PhyPortList;

typedef struct AdapterEntry {
    char SerialNumber[32];
    uint32_t AdapterType;
    char Manufacturer[80];
    uint16_t VendorID;
    uint16_t SubVendorID;
    uint16_t SubSystemID;
    uint16_t PciBusNumber;
    char FirmwareVersion[32];
    char AdapterModel[32];
    char FlashBIOSVersion[32];
    char FCodeVersion[32];
    char EFIVersion[32];
    char FlashFirmwareVersion[32];
    char FlashMultiBootVersion[32];
    uint32_t ChipRevision;
    PhyPortList PhyPorts;
    struct AdapterEntry *next;
} AdapterEntry;

typedef struct AdapterEntryList {
    uint32_t Count;
    AdapterEntry *First;
    AdapterEntry *Last;
} AdapterEntryList;

/* ------------------------------------------------------- host and system */
typedef struct SystemInfo {
    uint16_t Reserved;        /* left as the caller set it */
    uint16_t OperatingSystem; /* 3: Linux */
    uint16_t Architecture;    /* 1 x86_64, 0 x86 */
    uint16_t Reserved1;
    struct {
        uint32_t ProductType; /* 3 */
        uint32_t MajorVersion;
        uint32_t MinorVersion;
    } Linux;
} SystemInfo;

typedef struct HostInfo {
    uint32_t Reserved[2];
    char HostName[256];    /* offset 8 */
    char OSVersion[256];   /* offset 264 */
    char SystemType[128];  /* offset 520 */
    char AgentVersion[64]; /* offset 648 */
    char Reserved1[192];
    uint32_t HostNameCrc; /* offset 904: CRC-32 of the host name */
    uint32_t Valid;       /* offset 908 */
} HostInfo;

/* --------------------------------------------------------------- globals */
VTAPI_EXPORT extern int32_t gTraceLevel;
VTAPI_EXPORT extern uint32_t guInRefreshData;
VTAPI_EXPORT extern uint32_t guConfigChanged;
VTAPI_EXPORT extern uint32_t gFlashUpdateInProgress;
VTAPI_EXPORT extern AdapterEntryList *gpAdapterList;
VTAPI_EXPORT extern AdapterEntryList *gpBackupAdapterList;
VTAPI_EXPORT extern char gpInstallationPath[256];

/* ------------------------------------------------------------- lifecycle */
VTAPI_EXPORT uint32_t VTAPI_Initialize(int32_t traceLevel, const char *installDir);
VTAPI_EXPORT uint32_t VTAPI_Uninitialize(void);
VTAPI_EXPORT uint32_t VTAPI_RefreshData(void);
VTAPI_EXPORT uint32_t VTAPI_UpdateBackupAdapterList(void);
VTAPI_EXPORT uint32_t VTAPI_SwapBackupToMainAdapterList(void);
VTAPI_EXPORT uint32_t VTAPI_DidConfigChange(void);
VTAPI_EXPORT uint32_t VTAPI_ResetConfigChange(void);
VTAPI_EXPORT uint32_t VTAPI_GetAdapterCount(void);
VTAPI_EXPORT AdapterEntryList *VTAPI_GetAdapterList(void);
VTAPI_EXPORT void VTAPI_FreeMem(void *memory);
VTAPI_EXPORT uint32_t VTAPI_GetHostInfo(HostInfo *info);
VTAPI_EXPORT uint32_t VTAPI_GetSystemInfo(SystemInfo *info);
VTAPI_EXPORT uint32_t VTAPI_SetToolID(uint32_t toolId);
VTAPI_EXPORT uint32_t VTAPI_SetToolVersion(uint32_t v1, uint32_t v2, uint32_t v3, uint32_t v4);
VTAPI_EXPORT void VTAPI_COMInitByAnotherModule(void);

#ifdef __cplusplus
}
#endif

#endif /* VTAPI_H */
