/*
 * vtapi_api.h - the exported query, configuration, flash, diagnostics and
 * statistics calls of libvtapifconly.
 *
 * Each VTAPI_ call is a thin frame: it writes a profiler enter line with its
 * own name, calls the FC_ function of the same stem with the same arguments
 * (a 16-bit sub-index is cut to its low 16 bits), logs
 * "VTAPI_X(): returning with %d" and a profiler exit line, and returns the
 * status.  The frames take no lock and do not check that the library is
 * initialized.  Calls that read a named file first check that it exists:
 * when it does not, they return VTAPI_FILE_NOT_FOUND without calling the FC_
 * function.  Every VTAPI_ function, and every FC_ function behind one, is
 * exported, so a program that loads the library may replace any of them.
 *
 * Ports are addressed in three ways:
 *  - device number (the device-management library's instance number of a
 *    port) and sub-index: sub-index 0 is that port itself, a non-zero
 *    sub-index is the virtual port with that vPort id on it;
 *  - a pointer to an AdapterEntry of gpAdapterList (or gpBackupAdapterList):
 *    the adapter card;
 *  - a pointer to a ProtocolEntry of the tree: the port of that entry's WWNN
 *    and WWPN.
 *
 * Status codes (vtapi.h): 0 success; 2 a required pointer is null; 3 the
 * named input file does not exist; 12 the device number (or adapter entry)
 * is not known; 29 not supported on a virtual port; 36 the function does not
 * apply to this adapter or build; 114 the port is not found; 139 the target
 * is not found; other values come unchanged from libvtsdm (SDERR_*).
 */
#ifndef VTAPI_API_H
#define VTAPI_API_H

#include <stdint.h>

#include "vtapi.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------- records */

/* Versions of an adapter card (VTAPI_FCGetAdapterVersions).  The flash
 * versions are read from the card's option-ROM when asked; the firmware and
 * driver versions are those the running port reports.  An empty string
 * means the card carries no such image. */
typedef struct VTAPI_AdapterVersions {
    char FirmwareVersion[32];      /* running firmware */
    char FlashFirmwareVersion[32]; /* firmware image in flash */
    char BIOSVersion[32];
    char FCodeVersion[32];
    char EFIVersion[32];
    char MultiBootVersion[32]; /* multi-image version, "%d.%02d.%02d" */
    char DriverVersion[32];
} VTAPI_AdapterVersions;

/* Records of the families whose layouts are defined with their work (HBA
 * parameters, boot devices, flash images, diagnostics, statistics).  They
 * are declared here so the calls have their final types. */
typedef struct VTAPI_HBAParams VTAPI_HBAParams;
typedef struct VTAPI_BootDeviceInfo VTAPI_BootDeviceInfo;
typedef struct VTAPI_NVMeBootDeviceEntries VTAPI_NVMeBootDeviceEntries;
typedef struct VTAPI_FlashImageVersion VTAPI_FlashImageVersion;
typedef struct VTAPI_FlashImageAdapters VTAPI_FlashImageAdapters;
typedef struct VTAPI_DiagParams VTAPI_DiagParams;
typedef struct VTAPI_DiagResult VTAPI_DiagResult;
typedef struct VTAPI_RWBufferTestResultList VTAPI_RWBufferTestResultList;
typedef struct VTAPI_LinkStatusResultList VTAPI_LinkStatusResultList;
typedef struct VTAPI_PortStatistics VTAPI_PortStatistics;
typedef struct VTAPI_SCMRStatisticsList VTAPI_SCMRStatisticsList;

/* ---- HBA parameters and boot devices (NVRAM settings) ----
 * Each field names the NVRAM variable it is read from.  Fields a port's
 * chip does not have read as 0. */

/* A boot drive: target port name (most significant byte first) and LUN. */
typedef struct VTAPI_BootDrive {
    uint8_t WWPN[8];
    uint16_t LUN;
} VTAPI_BootDrive;

struct VTAPI_HBAParams {
    uint32_t DataRate;                 /* 57: 0 1G, 1 2G, 2 auto, 3 4G, 4 8G, 5 16G, 6 32G, 7 64G
                                        *     (chips 25 and 27 whose driver reports no supported
                                        *     speeds: the default supported-speed mask instead) */
    uint32_t ConnectionOption;         /* 44: 0 loop, 1 point-to-point, 2 loop preferred, 3 p-t-p preferred */
    uint32_t EnableFCTape;             /* 48 */
    uint32_t MaxLunsPerTarget;         /* 83 */
    uint32_t EnableHardLoopID;         /* 3 */
    uint32_t HardLoopID;               /* 32 */
    uint32_t FrameSize;                /* 19 */
    uint32_t EnableLipReset;           /* 66 */
    uint32_t EnableLipFullLogin;       /* 67 */
    uint32_t EnableTargetReset;        /* 68 */
    uint32_t EnableExtendedLogging;    /* 64 */
    uint32_t LoopResetDelay;           /* 81 */
    uint32_t LoginRetryCount;          /* 22 */
    uint32_t PortDownRetryCount;       /* 82 */
    uint32_t ExecutionThrottle;        /* 21 */
    uint32_t OperationMode;            /* 43: 0, 5 or 6 */
    uint32_t InterruptDelayTimer;      /* 53 */
    uint32_t LinkDownTimeout;          /* 97 (a value above 255 reads as 0) */
    uint32_t EnableFCConfirm;          /* 49 */
    uint32_t Enable64BitAddressing;    /* 6 */
    uint32_t EnableFastCommandPosting; /* 65 */
    uint32_t DisableBIOS;              /* 58: the inverse of EnableBIOS */
    uint32_t EnableSelectableBoot;     /* 60 */
    uint32_t SelectiveLogin;           /* 92 */
    uint32_t SelectiveLun;             /* 95 */
    uint32_t ForceWorldLogin;          /* 96 */
    uint32_t ReceiveOutOfOrderFrame;   /* 56 */
    uint32_t VendorID;                 /* 125 */
    uint32_t DeviceID;                 /* 126 */
    uint32_t SubsystemVendorID;        /* 127 */
    uint32_t SubsystemDeviceID;        /* 128 */
    uint32_t ExtendedFirmwareOptions;  /* 13 */
    uint32_t EnableLR;                 /* 133 */
    uint32_t FabricAssignWWN;          /* 130 */
    uint32_t FabricAssignBootLun;      /* 131 */
    uint32_t EnableDPort;              /* 132 */
    uint32_t DistanceSupport;          /* 134 */
    uint32_t MinimumSpeed;             /* 135 */
    uint32_t PreferFCP;                /* 136 */
    uint32_t DisableSCM;               /* 137: the inverse of EnableUSCM */
    uint8_t NVMeEnable;                /* 148 */
    uint8_t PortDisable;               /* 185 */
    uint8_t FabricPriority;            /* 186 */
    uint8_t VirtualLane;               /* 187 */
    VTAPI_BootDrive BootDrives[8];     /* drive 0 primary, 1-3 alternates, 4-7 further */
};

/* FCP boot settings of a port (VTAPI_GetBootDeviceInfo / SetBootDeviceInfo). */
struct VTAPI_BootDeviceInfo {
    uint32_t EnableBIOS;            /* 58 holds the inverse */
    uint32_t EnableSelectableBoot;  /* 60 */
    uint32_t SelectiveLogin;        /* 92 */
    uint32_t EnableAlternateBoot;   /* 93 */
    uint32_t EnableBootOrderList;   /* 94 */
    uint32_t SelectiveLun;          /* 95 */
    uint32_t ForceWorldLogin;       /* 96 (written on 512-byte images only) */
    uint32_t FabricAssignedBootLun; /* 131 (written where the adapter supports it) */
    uint32_t NVMeEnable;            /* 148 */
    uint32_t EfiHost;               /* out: 1 when the host boots by EFI */
    uint32_t DriveCount;            /* out: 4 on 256-byte NVRAM images, else 8 */
    uint8_t BootNodeName[8];        /* 84-91: drive 0's node name (EFI hosts, chips above 7) */
    VTAPI_BootDrive Drives[8];
};

/* FC-NVMe boot drive: 284 bytes, as it lies in the adapter's flash. */
#define VTAPI_NVME_DRIVE_VALID 0x1u /* Flags: the entry is in use */
typedef struct VTAPI_NVMeBootDrive {
    uint8_t TargetWWNN[8];
    uint8_t TargetWWPN[8];
    uint16_t ControllerID;
    uint16_t Reserved;
    uint32_t NamespaceID;
    uint32_t Flags; /* VTAPI_NVME_DRIVE_VALID */
    char NQN[256];  /* subsystem NQN, NUL-terminated */
} VTAPI_NVMeBootDrive;

/* FC-NVMe boot parameters block of a port: 2560 bytes, little-endian, as it
 * lies in the adapter's flash.  Signature 0x4D564E56 ("VNVM"); the 32-bit
 * words of the first Length bytes sum to 0. */
#define VTAPI_NVME_BOOT_SIGNATURE 0x4D564E56u
struct VTAPI_NVMeBootDeviceEntries {
    uint32_t Signature;
    uint32_t Version;
    uint32_t Length;
    uint32_t Checksum;
    VTAPI_NVMeBootDrive Drives[8];
    char HostNQN[256];
    uint8_t HostID[16];
};

/* ------------------------------------------- diagnostics and monitoring */

/* Diagnostic request: what a loopback or read/write buffer test runs, as
 * CopyUserDiagnosticsDataToDiagTable builds it from the diagnostic
 * parameter table.  A test is TestCount iterations (0: until stopped) done
 * in runs of TestIncrement iterations each. */
#define VTAPI_DIAG_PATTERN_RANDOM 0 /* 8 random bytes, repeated */
#define VTAPI_DIAG_PATTERN_CRPAT  1 /* FC compliant random pattern */
#define VTAPI_DIAG_PATTERN_CJTPAT 2 /* FC compliant jitter tolerance pattern */
#define VTAPI_DIAG_PATTERN_CSPAT  3 /* FC compliant supply noise pattern */
#define VTAPI_DIAG_PATTERN_USER   4 /* the 8 pattern bytes, repeated */
#define VTAPI_DIAG_PATTERN_BYTE   5 /* one byte in all 8 pattern bytes */
#define VTAPI_DIAG_ONERROR_IGNORE 0
#define VTAPI_DIAG_ONERROR_STOP   1
#define VTAPI_DIAG_ONERROR_LOOP   2 /* after a failed run, go on until stopped */
struct VTAPI_DiagParams {
    uint32_t AdapterInstance;
    int32_t TestCount;
    uint32_t Continuous; /* 1 when TestCount is 0 */
    int32_t OnError;     /* VTAPI_DIAG_ONERROR_* */
    int32_t TestIncrement;
    int32_t PatternKind;         /* VTAPI_DIAG_PATTERN_* */
    int32_t LoopbackType;        /* 0-5, see InitializeUserDiagnosticsTable */
    uint32_t DataSize;           /* bytes per frame */
    uint32_t DataIntegrityCheck; /* 1 for loopback type 5: received data is compared */
    uint8_t Pattern[8];
    uint32_t Echo; /* external loopback as ELS echo (0x80F2) */
};
typedef struct VTAPI_DiagParams DiagRequest;

/* Result of one loopback run (420 bytes). */
typedef struct DiagLoopbackResult {
    char TestStatus[32]; /* "Success", "Loop Down", "Param Error", "Error",
                            "Failure", "DevNotFound", "Memory error", ... */
    uint32_t CrcErrors;
    uint32_t DisparityErrors;
    uint32_t FrameLengthErrors;
    uint32_t ResultCode; /* 0; 40 parameter error; 41 loop down; 42 errors;
                            115 memory; 61 not supported */
    char Text[372];      /* explanation, empty on success */
} DiagLoopbackResult;

/* Outcome of a whole loopback test on one port. */
struct VTAPI_DiagResult {
    uint32_t DiagResult; /* diagnostic result of the last run (0, 40, 61, 115) */
    uint32_t RunsDone;
    uint32_t RunsFailed;
    uint32_t Aborted; /* 1: stopped before its count (abort, Enter, signal) */
    uint64_t IterationsDone;
    uint32_t CrcErrors; /* totals over the failed runs */
    uint32_t DisparityErrors;
    uint32_t FrameLengthErrors;
    uint32_t Reserved;
    DiagLoopbackResult LastRun; /* the first failed run, else the last run */
};

/* Read/write buffer test: one entry per target. */
typedef struct VTAPI_RWBufferTestResult {
    uint8_t TargetWWPN[8];
    uint16_t LoopId; /* the target's OS target number */
    uint16_t Lun;    /* LUN the buffer commands went to */
    char Status[32]; /* "Success", "Data Miscompare", "Failure", "Not present", ... */
    uint32_t RunsDone;
    uint32_t DataMiscompares;
    uint32_t LinkFailureCount; /* the target's link error status after the test */
    uint32_t LossOfSyncCount;
    uint32_t LossOfSignalCount;
    uint32_t InvalidCRCCount;
    char Text[128];
    struct VTAPI_RWBufferTestResult *next;
} VTAPI_RWBufferTestResult;
struct VTAPI_RWBufferTestResultList {
    uint32_t Count;
    VTAPI_RWBufferTestResult *First;
    VTAPI_RWBufferTestResult *Last;
};

/* Link status: one entry for the adapter port ("Port") and one per target
 * ("FCP Disk", "NVMe Disk"); counters in FC Read Link Error Status order. */
#define VTAPI_LINKSTATUS_NOT_PRESENT  (-16)
#define VTAPI_LINKSTATUS_QUERY_FAILED (-11)
typedef struct LinkStatusEntry {
    char PortType[16];
    uint8_t PortName[8]; /* WWPN */
    uint32_t LinkFailureCount;
    uint32_t LossOfSyncCount;
    uint32_t LossOfSignalCount;
    uint32_t PrimitiveSeqProtocolErrorCount;
    uint32_t InvalidTransmissionWordCount;
    uint32_t InvalidCRCCount;
    int32_t Status;      /* 0, VTAPI_LINKSTATUS_NOT_PRESENT or _QUERY_FAILED */
    char StatusText[32]; /* "Device has been removed", "Get link stats failed" */
    char Text[128];
    struct LinkStatusEntry *next;
} LinkStatusEntry;
struct VTAPI_LinkStatusResultList {
    uint32_t Count;
    LinkStatusEntry *First;
    LinkStatusEntry *Last;
};

/* Statistics of a port at one poll: the errors, device errors and resets
 * counters, a fourth counter kept but not shown, the I/O count, and the I/O
 * and byte rates since the previous poll of the same port. */
typedef struct HBAStatisticsSample {
    int64_t Errors;
    int64_t DeviceErrors;
    int64_t Resets;
    int64_t Interrupts;
    int64_t IoCount;
    int64_t IoPerSecond;
    int64_t BytesPerSecond;
    char TimeStamp[32]; /* "YYYY-MM-DD hh:mm:ss", local time */
    uint32_t Status;    /* 0, or 8 when the adapter cannot be found */
} HBAStatisticsSample;
struct VTAPI_PortStatistics {
    HBAStatisticsSample Sample;
    SDStatistics Counters; /* all counters as the port reports them */
};

/* Buffers of the features whose records are the device-management
 * library's own (dumps, transceiver data, FEC and credit settings, converged
 * adapter settings) are passed as bytes: `size` is in: the buffer's bytes,
 * out: the bytes of the record. */

/* ================================================ adapter and port information */

/* Board description of the card: the description of the board table, else
 * the model description the port reports; cut to size-1 characters. */
VTAPI_EXPORT uint32_t VTAPI_GetFCAdapterDecription(const AdapterEntry *adapter, char *text, uint32_t size);

/* PCI VPD of the port's card.  *size is in: bytes of buffer; out: bytes of
 * VPD.  A null buffer or one too small gives SDERR_BUFFER_TOO_SMALL with the
 * needed size stored in *size.  29 on a virtual port. */
VTAPI_EXPORT uint32_t VTAPI_GetVpd(uint32_t device, uint32_t index, void *buffer, uint32_t *size);

/* Adapter UUID (16 bytes) from the I2C VPD. */
VTAPI_EXPORT uint32_t VTAPI_GetUUIDFromI2CVPD(uint32_t device, uint32_t index, uint8_t *uuid, uint32_t size);

/* The port's property record, read afresh from libvtsdm. */
VTAPI_EXPORT uint32_t VTAPI_GetHbaDevicePortProperty(uint32_t device, uint32_t index, SDPortProperty *property);

/* Re-reads the port's property record into every copy of the port (both
 * device lists and the adapter tree).  A supported-speed mask set by rule
 * when the tree was built stays when the driver reports none. */
VTAPI_EXPORT uint32_t VTAPI_UpdatePortProperty(uint32_t device, uint32_t index);

/* Re-reads the discovered-target record of the target with this WWPN into
 * every copy of the port's target list; 139 when libvtsdm does not report
 * the target. */
VTAPI_EXPORT uint32_t VTAPI_UpdateDiscTargetProperty(uint32_t device, uint32_t index, const uint8_t *targetWWPN);

/* Index of the port on its card. */
VTAPI_EXPORT uint32_t VTAPI_GetPortIndex(uint32_t device, uint32_t index, uint32_t *portIndex);

/* *isMezz = 1 for a 16 Gb or 32 Gb mezzanine card, else 0. */
VTAPI_EXPORT uint32_t VTAPI_IsMezzAdapter(uint32_t device, uint32_t index, uint32_t *isMezz);

/* Port conditions, read afresh from the port's property record: *state is 1
 * when the driver runs the port in maintenance mode / a change awaits a
 * reboot / the firmware is in lockdown, else 0. */
VTAPI_EXPORT uint32_t VTAPI_IsPortInMaintenanceMode(uint32_t device, uint32_t index, uint32_t *state);
VTAPI_EXPORT uint32_t VTAPI_IsRebootRequired(uint32_t device, uint32_t index, uint32_t *state);
VTAPI_EXPORT uint32_t VTAPI_GetLockdownStatus(uint32_t device, uint32_t index, uint32_t *state);

/* Firmware, boot code and driver versions of the card. */
VTAPI_EXPORT uint32_t VTAPI_FCGetAdapterVersions(const AdapterEntry *adapter, VTAPI_AdapterVersions *versions);

/* Version of one flash component (a region type code) of the card, read
 * from its flash: from the component's own header where it carries one,
 * else from the flash's image layout table.  Cut to size-1 characters.
 * 36 when the card's flash holds no such component or no version for it. */
VTAPI_EXPORT uint32_t VTAPI_GetFlashComponentVersion(const AdapterEntry *adapter, uint32_t component, char *version,
                                                     uint32_t size);

/* Multi-image version text of the card's flash, "%d.%02d.%02d"; cut to
 * size-1 characters. */
VTAPI_EXPORT uint32_t VTAPI_GetMBIVersionString(const AdapterEntry *adapter, char *text, uint32_t size);

/* Version of the firmware preload tables. */
VTAPI_EXPORT uint32_t VTAPI_GetFwPreloadTablesVersion(const AdapterEntry *adapter, char *version, uint32_t size);

/* *available = 1 when the card's flash holds BIOS / EFI boot code. */
VTAPI_EXPORT uint32_t VTAPI_IsBiosAvailableWithAdapter(const AdapterEntry *adapter, uint32_t *available);
VTAPI_EXPORT uint32_t VTAPI_IsEfiAvailableWithAdapter(const AdapterEntry *adapter, uint32_t *available);

/* User alias of the card (aliasType 0) or of the port (any other type): at
 * most 256 characters, so the buffer holds 257 bytes.  No alias reads as
 * "".  Setting an alias of one blank clears it. */
VTAPI_EXPORT uint32_t VTAPI_GetFCAdapterAlias(const ProtocolEntry *port, char *alias, uint32_t aliasType);
VTAPI_EXPORT uint32_t VTAPI_SetFCAdapterAlias(const ProtocolEntry *port, const char *alias, uint32_t aliasType);

/* Operating-system name: "<system> <distribution> <release>" from uname and
 * the distribution identifier ("<system> <release>" without one); cut to
 * size-1 characters. */
VTAPI_EXPORT uint32_t VTAPI_GetOSName(char *name, uint32_t size);

/* ======================================================= configuration */

/* HBA parameters held in the port's NVRAM. */
VTAPI_EXPORT uint32_t VTAPI_GetHBAParamsInfo(const ProtocolEntry *port, VTAPI_HBAParams *params);
VTAPI_EXPORT uint32_t VTAPI_UpdateHBAParameters(const ProtocolEntry *port, const VTAPI_HBAParams *params);
VTAPI_EXPORT uint32_t VTAPI_PostVerifyHBAParameter(const ProtocolEntry *port);

/* NVRAM templates, defaults and files. */
VTAPI_EXPORT uint32_t VTAPI_LoadHBAParametersFromTemplateFile(const ProtocolEntry *port, uint32_t oem);
VTAPI_EXPORT uint32_t VTAPI_RestoreDefaultNVRAM(const ProtocolEntry *port);
VTAPI_EXPORT uint32_t VTAPI_SaveSingleAdapterNVRAMToFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t VTAPI_UpdateAdapterNVRAMFromFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t VTAPI_DoGlobalNVRAMUpdateAll(const char *fileName);
VTAPI_EXPORT uint32_t VTAPI_ResetToDefaultSettings(const ProtocolEntry *port);

/* Boot devices.  `which` selects the NVRAM area (1 active, 2 alternate). */
VTAPI_EXPORT uint32_t VTAPI_GetBootDeviceInfo(const ProtocolEntry *port, VTAPI_BootDeviceInfo *info, uint32_t which);
VTAPI_EXPORT uint32_t VTAPI_SetBootDeviceInfo(const ProtocolEntry *port, const VTAPI_BootDeviceInfo *info);
VTAPI_EXPORT uint32_t VTAPI_GetNVMeBootDeviceEntries(const ProtocolEntry *port, VTAPI_NVMeBootDeviceEntries *entries);
VTAPI_EXPORT uint32_t VTAPI_SetNVMeBootDeviceEntries(const ProtocolEntry *port,
                                                     const VTAPI_NVMeBootDeviceEntries *entries);
VTAPI_EXPORT uint32_t VTAPI_FCIsConfigureToBootFromSAN(const ProtocolEntry *port, uint32_t *configured);
VTAPI_EXPORT uint32_t VTAPI_GetBfsConfigMode(const ProtocolEntry *port, uint32_t *mode);
VTAPI_EXPORT uint32_t VTAPI_SetBfsConfigMode(const ProtocolEntry *port, uint32_t mode);

/* Virtual ports and QoS. */
VTAPI_EXPORT uint32_t VTAPI_GetNumberofVirtualPortsSupported(const ProtocolEntry *port, uint32_t *count);
VTAPI_EXPORT uint32_t VTAPI_CreateVirtualPort(const ProtocolEntry *port, const uint8_t *wwnn, const uint8_t *wwpn,
                                              uint16_t *vportId);
VTAPI_EXPORT uint32_t VTAPI_DeleteVirtualPort(const ProtocolEntry *port, const uint8_t *vportWWPN);
VTAPI_EXPORT uint32_t VTAPI_SDGetQoS(const ProtocolEntry *port, const uint8_t *vportWWPN, SDQoS *qos);
VTAPI_EXPORT uint32_t VTAPI_SDSetQoS(const ProtocolEntry *port, const uint8_t *vportWWPN, const SDQoS *qos);

/* Per-target link speed (iiDMA), in Gb/s. */
VTAPI_EXPORT uint32_t VTAPI_GetTargetLinkSpeed(const ProtocolEntry *port, const uint8_t *targetWWPN, uint32_t *speed);
VTAPI_EXPORT uint32_t VTAPI_SetTargetLinkSpeed(const ProtocolEntry *port, const uint8_t *targetWWPN, uint32_t speed);
VTAPI_EXPORT uint32_t VTAPI_SetTargetLinkSpeedToAlltargets(const ProtocolEntry *port, uint32_t speed);

/* =============================================================== flash */

/* Versions found in a flash image file for one card
 * (VTAPI_FCGetFlashImageVersion).  A component's fields are meaningful when
 * its VTAPI_FLASH_HAS_ bit is set in Present.  Firmware-like versions are
 * major, minor, sub-minor (and a fourth field where the component has one);
 * boot code versions are major and minor. */
#define VTAPI_FLASH_HAS_FIRMWARE      0x00000001u
#define VTAPI_FLASH_HAS_FCOE_FIRMWARE 0x00000002u
#define VTAPI_FLASH_HAS_BIOS          0x00000004u
#define VTAPI_FLASH_HAS_FCODE         0x00000008u
#define VTAPI_FLASH_HAS_EFI           0x00000010u
#define VTAPI_FLASH_HAS_BIOS_EXP      0x00000020u
#define VTAPI_FLASH_HAS_FCODE_EXP     0x00000040u
#define VTAPI_FLASH_HAS_EFI_EXP       0x00000080u
#define VTAPI_FLASH_HAS_PXE           0x00000100u
#define VTAPI_FLASH_HAS_MPI_FW        0x00000200u
#define VTAPI_FLASH_HAS_MPI_SOFTROM   0x00000400u
#define VTAPI_FLASH_HAS_PEP_FW        0x00000800u
#define VTAPI_FLASH_HAS_PEP_SOFTROM   0x00001000u
#define VTAPI_FLASH_HAS_PEP_BOARD_CFG 0x00002000u
#define VTAPI_FLASH_HAS_FW_PRELOAD    0x00004000u
#define VTAPI_FLASH_HAS_FC_BOARD_CFG  0x00008000u
#define VTAPI_FLASH_HAS_PCIE_SERDES   0x00010000u
#define VTAPI_FLASH_HAS_FC_SOFTROM    0x00020000u
#define VTAPI_FLASH_HAS_SIGNATURE     0x00040000u
#define VTAPI_FLASH_HAS_NIC_FW        0x00080000u
#define VTAPI_FLASH_HAS_CRBINIT       0x00100000u
#define VTAPI_FLASH_HAS_PEGTUNE       0x00200000u
#define VTAPI_FLASH_HAS_BOOTLOADER    0x00400000u
#define VTAPI_FLASH_HAS_EDC_FW        0x00800000u

struct VTAPI_FlashImageVersion {
    uint8_t MBIVersion[3]; /* image version of the layout table */
    uint8_t Reserved0;
    uint8_t FFVVersion[4]; /* family firmware version */
    uint16_t BuildYear;
    uint8_t BuildMonth;
    uint8_t BuildDay;
    int32_t ActivationLevel; /* -1 below table version 5 */
    uint32_t TableVersion;
    uint32_t CardType;       /* the card type found for the adapter */
    uint32_t ComponentCount; /* components meant for the card */
    uint32_t Present;        /* VTAPI_FLASH_HAS_ bits */
    uint8_t Firmware[4];     /* RISC firmware (0x01) */
    uint8_t FcoeFirmware[4]; /* FCoE RISC firmware (0xA4) */
    uint8_t MpiFirmware[4];
    uint8_t MpiSoftROM[4];
    uint8_t PepFirmware[4];    /* four fields */
    uint8_t PepSoftROM[4];     /* four fields */
    uint8_t PepBoardConfig[4]; /* four fields */
    uint8_t FwPreload[4];
    uint8_t FcBoardConfig[4];
    uint8_t PcieSerdes[4];
    uint8_t FcSoftROM[4];
    uint8_t SignatureRegion[4];
    uint8_t Bios[2];
    uint8_t FCode[2];
    uint8_t Efi[2];
    uint8_t BiosExp[2]; /* boot code expansion region (0x11) */
    uint8_t FCodeExp[2];
    uint8_t EfiExp[2];
    uint8_t Pxe[2];
    uint8_t Reserved1[2];
    uint8_t NicFirmware[4];
    uint8_t CRBinit[4];
    uint8_t Pegtune[4];
    uint8_t Bootloader[4];
    uint8_t EdcFirmware[4];
    char MBIVersionText[16]; /* "%02d.%02d.%02d" */
};

/* One card entry of a flash image file's card-type lists. */
typedef struct VTAPI_FlashImageAdapter {
    uint16_t CardType; /* card type of its list, 0 the default list */
    uint16_t VendorID;
    uint16_t DeviceID;
    uint16_t SubVendorID; /* 0xFFFF: any */
    uint16_t SubSystemID; /* 0xFFFF: any */
    uint16_t Reserved;
} VTAPI_FlashImageAdapter;

/* Cards a flash image file is meant for (VTAPI_FCGetFlashImageSupportedAdapters):
 * every card entry of every list, in file order.  Adapters is allocated for
 * the caller and released with VTAPI_FreeMem; null when Count is 0. */
struct VTAPI_FlashImageAdapters {
    uint32_t Count;
    uint32_t Reserved;
    VTAPI_FlashImageAdapter *Adapters;
    char MBIVersion[16]; /* "%02d.%02d.%02d" */
};

/* Writes a flash image file into the card of the port.  gFlashUpdateInProgress
 * is 1 while it runs, so that VTAPI_DidConfigChange does not poll.
 * The file (a multi-image file, bare or PLDM-wrapped, or a single boot-code
 * file) is validated against the card as VTAPI_FCGetFlashImageVersion does;
 * then the regions meant for the card (and the file's layout table) replace
 * the flash's in one step, the VPD and NVRAM regions untouched.  options are
 * reserved (0).
 * Statuses of the update and region families: 201 written, the card runs it
 * after a reboot (the ports report reboot-required, and the configuration-
 * changed flag is set); 2 null argument; 3 no such file; 6 the card is not
 * listed or its flash layout cannot be read; 13 the file cannot be read or
 * does not fit the region; 25, 36, 113, 522 as for
 * VTAPI_FCGetFlashImageVersion, 113 also when the file's regions do not fit
 * the card's flash or the card has no such region; 29 a virtual port; 133
 * firmware lockdown; 150 maintenance mode; a libvtsdm status (flash read or
 * write failed) passed through, the flash unchanged.
 * The region families: firmware table = firmware preload area (0x13), MPI
 * configuration = 0x41, PEP configuration = PEP board configuration (0xCF),
 * SerDes = PCIe SerDes table (0x102).  A save writes the whole region (its
 * erased end included) to a new file put in place in one step; an update
 * from such a file gives back the same region. */
VTAPI_EXPORT uint32_t VTAPI_doOptionROMUpdate(const ProtocolEntry *port, const char *fileName, uint32_t options);
VTAPI_EXPORT uint32_t VTAPI_UpdateAdapterFirmwareTableFromFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t VTAPI_UpdateSpecificFlashRegionFromFile(const ProtocolEntry *port, const char *fileName,
                                                              uint32_t region);
VTAPI_EXPORT uint32_t VTAPI_UpdateAdapterMpiCfgFromDatFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t VTAPI_UpdateAdapterPEPCfgFromFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t VTAPI_SaveAdapterSerdesRegionToFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t VTAPI_SaveAdapterFirmwareTableToFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t VTAPI_SaveAdapterMpiCfgToDatFile(const ProtocolEntry *port, const char *fileName);
/* Versions of the images in a flash image file (a multi-image file, bare or
 * PLDM-wrapped, or a single boot-code file) meant for the card of the port,
 * after validating the file against that card.  0; 2 null argument; 6 the
 * port is not listed; 13 the file cannot be read; 25 the layout table is
 * invalid; 36 the card has no flash image family; 113 the file holds nothing
 * for this card; 522 a component failed validation. */
VTAPI_EXPORT uint32_t VTAPI_FCGetFlashImageVersion(const ProtocolEntry *port, const char *fileName,
                                                   VTAPI_FlashImageVersion *version);
/* Cards a flash image file is meant for.  0; 2 null argument; 13 the file
 * cannot be read; 25 the layout table is invalid. */
VTAPI_EXPORT uint32_t VTAPI_FCGetFlashImageSupportedAdapters(const char *fileName, VTAPI_FlashImageAdapters *adapters);
VTAPI_EXPORT uint32_t VTAPI_GetAdapterFlashMemoBlock(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_SfpModuleFirmwareUpdate(const ProtocolEntry *port, const char *fileName);

/* ========================================================= diagnostics */

VTAPI_EXPORT uint32_t VTAPI_DiagnosticsLoopBackTest(const ProtocolEntry *port, const VTAPI_DiagParams *params,
                                                    VTAPI_DiagResult *result);
/* The result list is released with VTAPI_FreeRWBufferTestResultList. */
VTAPI_EXPORT uint32_t VTAPI_DiagnosticsReadWriteBufferTest(const ProtocolEntry *port, const VTAPI_DiagParams *params,
                                                           VTAPI_RWBufferTestResultList **results);
VTAPI_EXPORT uint32_t VTAPI_FreeRWBufferTestResultList(VTAPI_RWBufferTestResultList *results);
VTAPI_EXPORT uint32_t VTAPI_AbortDiagTest(const ProtocolEntry *port);
VTAPI_EXPORT uint32_t VTAPI_DiagnosticsEchoElsTest(const ProtocolEntry *port, const uint8_t *targetWWPN, void *result,
                                                   uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_DiagnosticsRDPTest(const ProtocolEntry *port, const uint8_t *targetWWPN, void *result,
                                               uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_DiagnosticsFCPingTest(const ProtocolEntry *port, const uint8_t *targetWWPN, void *result,
                                                  uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_DiagnosticsCTCommand(const ProtocolEntry *port, const void *request, uint32_t requestSize,
                                                 void *response, uint32_t *responseSize);
VTAPI_EXPORT uint32_t VTAPI_CheckAdapterDPortOption(const ProtocolEntry *port, uint32_t *supported);
VTAPI_EXPORT uint32_t VTAPI_ConfigureAdapterDPortSettings(const ProtocolEntry *port, uint32_t enable);
VTAPI_EXPORT uint32_t VTAPI_DiagnosticDPortTest(const ProtocolEntry *port, void *result, uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_DiagnosticDPortTestEX(const ProtocolEntry *port, void *result, uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_DiagnosticDPortTestV2(const ProtocolEntry *port, void *result, uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_UpdateAdapterBeaconStatus(const ProtocolEntry *port, uint32_t on);
VTAPI_EXPORT uint32_t VTAPI_GetAdapterBeaconStatus(const ProtocolEntry *port, uint32_t *on);

/* ========================================== link status and statistics */

/* The result list is released with VTAPI_FreeLinkStatusResultList. */
VTAPI_EXPORT uint32_t VTAPI_GetLinkStatus(const ProtocolEntry *port, VTAPI_LinkStatusResultList **results);
VTAPI_EXPORT uint32_t VTAPI_FreeLinkStatusResultList(VTAPI_LinkStatusResultList *results);
VTAPI_EXPORT uint32_t VTAPI_GetPortStatisticsFC(const ProtocolEntry *port, VTAPI_PortStatistics *statistics);
VTAPI_EXPORT uint32_t VTAPI_RefreshDeviceStats(const ProtocolEntry *port);
VTAPI_EXPORT uint32_t VTAPI_ResetDeviceStats(const ProtocolEntry *port);
VTAPI_EXPORT uint32_t VTAPI_GetFWPrivateStats(const ProtocolEntry *port, void *buffer, uint32_t *size);
/* Congestion management; the list is released with
 * VTAPI_FreeSCMRStatisticsList. */
VTAPI_EXPORT uint32_t VTAPI_GetSCMRStatisticsList(const ProtocolEntry *port, VTAPI_SCMRStatisticsList **list);
VTAPI_EXPORT uint32_t VTAPI_FreeSCMRStatisticsList(VTAPI_SCMRStatisticsList *list);
VTAPI_EXPORT uint32_t VTAPI_SANCongMgmtResetStatistics(const ProtocolEntry *port);
VTAPI_EXPORT uint32_t VTAPI_GetSCMRProfile(const ProtocolEntry *port, uint32_t *profile);
VTAPI_EXPORT uint32_t VTAPI_SetSCMRProfile(const ProtocolEntry *port, uint32_t profile);
VTAPI_EXPORT uint32_t VTAPI_IsUSCMFeatureEnabled(const ProtocolEntry *port, uint32_t *enabled);

/* ============================================== other adapter features */

/* Firmware dumps and traces. */
VTAPI_EXPORT uint32_t VTAPI_SDGetFwDump(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_SDGetFwDump2(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_SDGetTraceBuffer(const ProtocolEntry *port, void *buffer, uint32_t *size);
/* Takes no arguments, does nothing and returns VTAPI_FUNCTION_NOT_APPLICABLE. */
VTAPI_EXPORT uint32_t VTAPI_SDGetMPIFwDump(void);

/* Transceiver data and temperature. */
VTAPI_EXPORT uint32_t VTAPI_GetSFPData(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_SaveSFPDataToFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t VTAPI_SaveSFPDataToTextFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t VTAPI_GetAdapterAsicBoardTemperature(const ProtocolEntry *port, int32_t *celsius);

/* Electronic dispersion compensation. */
VTAPI_EXPORT uint32_t VTAPI_GetEDCChipsetVersion(const ProtocolEntry *port, char *version, uint32_t size);
VTAPI_EXPORT uint32_t VTAPI_GetAdapterEDCChipsetStatus(const ProtocolEntry *port, uint32_t *status);
VTAPI_EXPORT uint32_t VTAPI_GetAdapterEDCSettings(const ProtocolEntry *port, void *buffer, uint32_t *size);

/* Forward error correction and buffer-to-buffer credit recovery. */
VTAPI_EXPORT uint32_t VTAPI_FCGetFECSupportInfo(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_FCSetFECSupportInfo(const ProtocolEntry *port, const void *buffer, uint32_t size);
VTAPI_EXPORT uint32_t VTAPI_ResetFECCounters(const ProtocolEntry *port);
VTAPI_EXPORT uint32_t VTAPI_FCGetBBCSupportInfo(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_FCGetBBCSupportInfoEx(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_FCSetBBCSupportInfo(const ProtocolEntry *port, const void *buffer, uint32_t size);

/* Converged adapters. */
VTAPI_EXPORT uint32_t VTAPI_GetDCBXParams(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_CheckOrlaPersonalityChangeOption(const ProtocolEntry *port, uint32_t *supported);
VTAPI_EXPORT uint32_t VTAPI_GetPersonalityType(const ProtocolEntry *port, uint32_t *type);
VTAPI_EXPORT uint32_t VTAPI_ChangePersonalityType(const ProtocolEntry *port, uint32_t type);
VTAPI_EXPORT uint32_t VTAPI_GetMpiConfigTableParams(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_GetDCEStatistics(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_GetFCFPrimVLANConfig(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t VTAPI_SetFCFPrimVLANConfig(const ProtocolEntry *port, const void *buffer, uint32_t size);
VTAPI_EXPORT uint32_t VTAPI_GetFCoEGeneralInfo(const ProtocolEntry *port, void *buffer, uint32_t *size);

#ifdef __cplusplus
}
#endif

#endif /* VTAPI_API_H */
