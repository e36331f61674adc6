/*
 * vtsdm_types.h - status codes, constants and records of libvtsdm's
 * interface, without its functions (vtsdm.h declares those).  A program
 * that only holds libvtsdm's records, such as a front end of
 * libvtapifconly, includes this header alone.
 */
#ifndef VTSDM_TYPES_H
#define VTSDM_TYPES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------- status */
#define SDERR_NONE                 0x00000000u
#define SDERR_SCSI_CHECK_CONDITION 0x20000040u /* sense data returned */
#define SDERR_DIAG_PARAMETER       0x20000064u /* diagnostic parameter error */
#define SDERR_INVALID_PARAMETER    0x20000065u /* bad argument */
#define SDERR_NOT_SUPPORTED        0x20000066u /* not supported by this port or its driver */
#define SDERR_DEVICE_BUSY          0x20000067u /* device or target busy */
#define SDERR_INVALID_HANDLE       0x20000068u /* handle not open */
#define SDERR_NOT_FOUND            0x20000069u /* no such target, LUN, region or vport */
#define SDERR_IO_FAILED            0x2000006Au /* state store or host file error */
#define SDERR_OUT_OF_MEMORY        0x2000006Cu /* an allocation failed; nothing changed */
#define SDERR_NO_SUCH_DEVICE       0x2000006Du /* no further instance */
#define SDERR_DEVICE_REMOVED       0x2000006Fu /* device removed */
#define SDERR_DEVICE_UNAVAILABLE   0x20000071u /* temporarily unavailable, retry */
#define SDERR_BUFFER_TOO_SMALL     0x20000072u /* size/count returned */
#define SDERR_LOOP_DOWN            0x20000075u /* link is down */
#define SDERR_DATA_UNDERRUN        0x20000077u /* less data than requested; accepted */
#define SDERR_SHORT_READ           0x20000078u /* flash region shorter than asked */
#define SDERR_LOCKDOWN             0x2000007Au /* write refused: the port's firmware is in lockdown */
/* Flash part errors: a read or write of a region failed; a failed write
 * leaves the regions as they were. */
#define SDERR_FLASH_READ_FAILED  0x2000007Bu
#define SDERR_FLASH_WRITE_FAILED 0x2000007Cu

/* ------------------------------------------------------------ constants */
#define SD_INTERFACE_FC    1u
#define SD_INTERFACE_VPORT 3u
#define SD_INTERFACE_FCOE  4u

/* Port state (SDPortProperty.PortState). */
#define SD_PORTSTATE_ONLINE      1u
#define SD_PORTSTATE_LINKDOWN    2u
#define SD_PORTSTATE_OFFLINE     3u
#define SD_PORTSTATE_BYPASSED    4u
#define SD_PORTSTATE_DIAGNOSTICS 5u
#define SD_PORTSTATE_ERROR       6u
/* Second state field (SDPortProperty.PortSubState). */
#define SD_PORTSUBSTATE_NONE  0u
#define SD_PORTSUBSTATE_DPORT 2u

/* Port speed codes (SDPortProperty.PortSpeed). */
#define SD_SPEED_1G   1u
#define SD_SPEED_2G   2u
#define SD_SPEED_4G   4u
#define SD_SPEED_8G   8u
#define SD_SPEED_10G  16u
#define SD_SPEED_16G  22u
#define SD_SPEED_20G  32u
#define SD_SPEED_32G  50u
#define SD_SPEED_64G  100u
#define SD_SPEED_128G 296u
/* Supported-speed mask bits (SDPortProperty.SupportedSpeed): bit n is
 * data-rate code n. */
#define SD_SUPPORTED_1G  0x01u
#define SD_SUPPORTED_2G  0x02u
#define SD_SUPPORTED_4G  0x08u
#define SD_SUPPORTED_8G  0x10u
#define SD_SUPPORTED_16G 0x20u
#define SD_SUPPORTED_32G 0x40u
#define SD_SUPPORTED_64G 0x80u

/* Driver capability bits (SDDriverProperty.Capabilities). */
#define SD_DRVCAP_SUPPORTED_SPEED  0x0001u /* driver reports SupportedSpeed */
#define SD_DRVCAP_REMOTE_PORT_INFO 0x0002u
#define SD_DRVCAP_AEN              0x0004u /* events available via SDGetAen */
#define SD_DRVCAP_VIRTUAL_LANE     0x0008u
#define SD_DRVCAP_NPIV             0x0010u

/* Port condition bits (SDPortProperty.StateFlags). */
#define SD_PORTFLAG_MAINTENANCE     0x0001u
#define SD_PORTFLAG_REBOOT_REQUIRED 0x0002u
#define SD_PORTFLAG_LOCKDOWN        0x0004u

/* Discovered target types (SDDiscTargetProperty.TargetType). */
#define SD_TARGETTYPE_FCP  1u
#define SD_TARGETTYPE_NVME 2u
/* Target flags (SDDiscTargetProperty.TargetFlags). */
#define SD_TGTFLAG_LOGGED_IN 0x0001u
#define SD_TGTFLAG_TARGET    0x0002u
#define SD_TGTFLAG_INITIATOR 0x0004u
#define SD_TGTFLAG_TAPE      0x0008u
#define SD_TGTFLAG_FABRIC    0x0010u

/* Event codes (first word of an SDAenRecord). */
#define SD_AEN_LIP_OCCURRED  1u
#define SD_AEN_LINK_UP       2u
#define SD_AEN_LINK_DOWN     3u
#define SD_AEN_LIP_RESET     4u
#define SD_AEN_SCR_UPDATE    5u
#define SD_AEN_DEVICE_UPDATE 6u
#define SD_AEN_DPORT_DIAG    8u
#define SD_AEN_FEC_ACTIVE    9u
/* Payloads: SD_AEN_LINK_UP carries the speed code (SD_SPEED_*) in Payload[0];
 * SD_AEN_DEVICE_UPDATE the target's port ID in Payload[0] and what happened
 * to it in Payload[1]: */
#define SD_AEN_DEVICE_LOGGED_IN  1u
#define SD_AEN_DEVICE_LOGGED_OUT 2u
#define SD_AEN_DEVICE_REMOVED    3u

/* QoS types. */
#define SD_QOS_RESERVED   0u
#define SD_QOS_PERCENTAGE 1u
#define SD_QOS_SPEED      2u

/* Loopback options of SDRunDiagLoopbackEx. */
#define SD_LOOPBACK_INTERNAL_10BIT 0xF0u
#define SD_LOOPBACK_INTERNAL_1BIT  0xF1u
#define SD_LOOPBACK_EXTERNAL       0xF2u
#define SD_LOOPBACK_ECHO           0x80F2u

#define SD_SENSE_BUFFER_SIZE 80u
#define SD_MAX_INSTANCES     31u

/* Virtual ports.  A physical port carries at most the driver's MaxVports,
 * and never more than SD_MAX_VPORTS_PER_PORT.  Each vPort keeps its instance
 * number until it is deleted; the gap it leaves answers SDOpenDevice with
 * SDERR_DEVICE_REMOVED and is given to the next vPort created.  Created
 * vPorts may take numbers at or above SD_MAX_INSTANCES.  SDCreateVport on a
 * port whose link is not up gives SDERR_LOOP_DOWN. */
#define SD_MAX_VPORTS_PER_PORT 126u

/* --------------------------------------------------------------- records */
typedef struct SDChipProperty {
    uint16_t VendorID;
    uint16_t DeviceID;
    uint16_t SubVendorID;
    uint16_t SubSystemID;
    uint16_t PciBusNumber;
    uint16_t PciDevFunc; /* bits 3-7 device number, bits 0-2 function */
    uint16_t ChipRevision;
    uint8_t PhysPortNumber; /* port index on the card */
    uint8_t NumberOfPorts;  /* physical ports on the card */
    uint32_t IspType;       /* ISP type code of the chip */
    uint32_t NvramSize;     /* 256 or 512 */
    uint32_t Reserved[4];
} SDChipProperty;

typedef struct SDDriverProperty {
    char DriverName[32];
    char DriverVersion[32];
    uint32_t LunsPerTarget;    /* 0 when the driver does not report it */
    uint32_t MaxVports;        /* NPIV ports the driver allows */
    uint32_t MaxVportsWithQoS; /* of which QoS-capable */
    uint32_t Capabilities;     /* SD_DRVCAP_* */
    uint32_t Reserved[4];
} SDDriverProperty;

typedef struct SDNodeProperty {
    uint8_t WWNN[8];
    char Manufacturer[80];
    char Model[32];
    char ModelDescription[128];
    char SerialNumber[32];
    char DriverVersion[32];
    char FirmwareVersion[32];
    char OptionRomVersion[32];
    uint16_t VPortId;          /* 0 on a physical port */
    uint16_t Interface;        /* SD_INTERFACE_* */
    uint8_t FlashFwVersion[3]; /* major, minor, sub-minor */
    uint8_t VPortIndex;        /* index in the parent's vPort table */
    uint32_t ParentInstance;   /* physical port of a virtual port */
    uint8_t ParentWWPN[8];
    uint32_t Reserved[4];
} SDNodeProperty;

typedef struct SDPortProperty {
    uint8_t WWPN[8];
    uint8_t PortId[3]; /* domain, area, port */
    uint8_t Reserved0;
    uint16_t PortState;     /* SD_PORTSTATE_* */
    uint16_t PortSubState;  /* SD_PORTSUBSTATE_* */
    uint32_t PortSpeed;     /* SD_SPEED_* code */
    uint8_t SupportedSpeed; /* SD_SUPPORTED_* mask */
    uint8_t Reserved1[3];
    uint32_t StateFlags; /* SD_PORTFLAG_* */
    uint32_t MaxFrameSize;
    uint32_t DiscoveredTargets;
    uint32_t NumberOfVports;
    uint8_t PrincipalFabricWWPN[8];
    uint8_t AdjacentFabricWWN[8];
    uint8_t FabricName[8];
    uint8_t EnodeMAC[6]; /* FCoE function only */
    uint8_t Reserved2[2];
    char DeviceName[64]; /* OS name of the port, e.g. "host3" */
    uint32_t Reserved[4];
} SDPortProperty;

typedef struct SDDiscTargetProperty {
    uint8_t WWNN[8];
    uint8_t WWPN[8];
    uint8_t PortId[3];
    uint8_t Reserved0;
    uint16_t TargetType;  /* SD_TARGETTYPE_* */
    uint16_t PortType;    /* FC port type: 1 N_Port, 2 NL_Port */
    uint32_t TargetFlags; /* SD_TGTFLAG_* */
    uint16_t TargetId;    /* OS target number */
    uint16_t Reserved1;
    uint32_t Reserved[2];
} SDDiscTargetProperty;

/* Counters of the port (SDGetStatistics).  Link error counters are those of
 * the FC Read Link Error Status block. */
typedef struct SDStatistics {
    uint64_t ControllerErrorCount;
    uint64_t DeviceErrorCount;
    uint64_t TotalLipResets;
    uint64_t InterruptCount;
    uint64_t TotalIoCount;
    uint64_t TotalMBytes;
    uint64_t InputRequests;
    uint64_t OutputRequests;
    uint64_t ControlRequests;
    uint64_t InputMBytes;
    uint64_t OutputMBytes;
    uint64_t TxFrames;
    uint64_t RxFrames;
    uint64_t TxWords;
    uint64_t RxWords;
    uint64_t LipCount;
    uint64_t NosCount;
    uint64_t ErrorFrames;
    uint64_t DumpedFrames;
    uint64_t SecondsSinceLastReset;
    uint32_t LinkFailureCount;
    uint32_t LossOfSyncCount;
    uint32_t LossOfSignalCount;
    uint32_t PrimitiveSeqProtocolErrorCount;
    uint32_t InvalidTransmissionWordCount;
    uint32_t InvalidCRCCount;
    uint32_t Reserved[4];
} SDStatistics;

/* Link error status of a remote port, in FC RLS order. */
typedef struct SDLinkErrorStatus {
    uint32_t LinkFailureCount;
    uint32_t LossOfSyncCount;
    uint32_t LossOfSignalCount;
    uint32_t PrimitiveSeqProtocolErrorCount;
    uint32_t InvalidTransmissionWordCount;
    uint32_t InvalidCRCCount;
} SDLinkErrorStatus;

/* One event: 16 bytes, the code first. */
typedef struct SDAenRecord {
    uint32_t Code; /* SD_AEN_* */
    uint32_t Payload[3];
} SDAenRecord;

/* A port's event queue (SDGetAenQueueStatus).  The queue holds Capacity
 * events, as the adapter firmware does; a new event on a full queue drops
 * the oldest and counts it in Dropped. */
typedef struct SDAenQueueStatus {
    uint32_t Queued;   /* events waiting for SDGetAen */
    uint32_t Capacity; /* most events the queue holds */
    uint32_t Dropped;  /* events dropped so far (saturates) */
    uint32_t Reserved[5];
} SDAenQueueStatus;

/* Option-ROM layout: a header of two words and Count descriptors. */
typedef struct SDOptionRomRegion {
    uint32_t Region; /* region type code */
    uint32_t Size;   /* bytes */
} SDOptionRomRegion;

typedef struct SDOptionRomLayout {
    uint32_t FlashSize; /* total bytes of the flash part */
    uint32_t Count;     /* in: descriptors the buffer holds; out: regions */
    SDOptionRomRegion Region[1];
} SDOptionRomLayout;

typedef struct SDQoS {
    uint16_t VPortId;
    uint16_t QoSType;  /* SD_QOS_* */
    uint16_t QoSValue; /* percent or speed in Gb/s, by type */
    uint16_t QoSEnabled;
} SDQoS;

/* Test status of a diagnostic run (SDDiagResult.TestStatus). */
#define SD_DIAG_STATUS_PASSED      1u /* data came back intact */
#define SD_DIAG_STATUS_PARAM_ERROR 2u /* option or size the port cannot run */
#define SD_DIAG_STATUS_LOOP_DOWN   3u /* the link is down (external loopback, echo) */
#define SD_DIAG_STATUS_ERRORS      4u /* frames had errors: see the three counts */

typedef struct SDDiagResult {
    uint32_t CrcErrors;
    uint32_t DisparityErrors;
    uint32_t FrameLengthErrors;
    uint32_t IterationsDone;
    uint32_t TestStatus; /* SD_DIAG_STATUS_* */
    uint32_t Reserved[3];
} SDDiagResult;

#ifdef __cplusplus
}
#endif

#endif /* VTSDM_TYPES_H */
