/*
 * vport.h - NPIV virtual ports (vPorts) of a physical FC port and the share
 * of the port's bandwidth (QoS) each of them gets.
 *
 * A new vPort's WWPN is the physical port's WWPN with its second byte
 * replaced by a value above 3 that no listed port uses: a value the user
 * gave, counted upward from 4, or drawn at random (GetVPortRandomByte).
 *
 * QoS values are a percentage of the port (type 1), a speed in Gb/s (type
 * 2, which does not count toward the percentages), or a reserved share
 * (type 0).  Raising one vPort's percentage takes the bandwidth it needs
 * from the other unlocked percentage vPorts: first proportionally, then one
 * percent at a time from the largest.
 *
 * Statuses: 0 success; VTAPI_QOS_INVALID_LIST (10), VTAPI_VPORT_WWN_UNUSABLE
 * (293), VTAPI_QOS_DISABLED (374), VTAPI_QOS_OUT_OF_RANGE (376),
 * VTAPI_QOS_PERCENT_OVERFLOW (378); VTAPI_INVALID_ARGUMENT,
 * VTAPI_NOT_SUPPORTED_ON_VPORT, VTAPI_OPTION_NOT_SUPPORTED (the port takes
 * no vPorts) and VTAPI_PORT_NOT_FOUND (no such vPort); other values come
 * from libvtsdm.
 */
#ifndef VT_CONFIG_VPORT_H
#define VT_CONFIG_VPORT_H

#include <stdint.h>

#include "vtapi.h"

#ifdef __cplusplus
extern "C" {
#endif

#define MAX_BW_PERCENTAGE 100u

#define VTAPI_QOS_INVALID_LIST     10u
#define VTAPI_VPORT_WWN_UNUSABLE   293u
#define VTAPI_QOS_DISABLED         374u
#define VTAPI_QOS_OUT_OF_RANGE     376u
#define VTAPI_QOS_PERCENT_OVERFLOW 378u

/* Options of populateVPortWWNArray. */
#define VPORT_WWN_SEQUENTIAL 0u /* count upward from 4 */
#define VPORT_WWN_USER       2u /* the user's byte, g_UserVPortWWNByte */
/* any other option: random bytes */

/* One vPort of a physical port, in discovery order. */
typedef struct VPortQoSEntry {
    uint16_t VPortId;
    uint16_t QoSVal;     /* percentage (0-100) or speed, by type */
    uint16_t QoSType;    /* SD_QOS_* */
    uint16_t QoSEnabled; /* 1 when QoS may be set on this vPort */
    uint16_t Locked;     /* 1: no other change takes from it */
    uint16_t Reserved;
    uint8_t WWPN[8];
    struct VPortQoSEntry *next;
} VPortQoSEntry;

typedef struct VPortQoSList {
    uint32_t Count;
    VPortQoSEntry *First;
    VPortQoSEntry *Last;
    uint16_t MaxPercentageBW;          /* MAX_BW_PERCENTAGE */
    uint16_t MaxRemainingPercentageBW; /* the available percentage */
} VPortQoSList;

/* A vPort and its bandwidth, as CompareBw sorts them. */
typedef struct VPortBwPair {
    uint16_t VPortId;
    uint16_t Value;
    uint32_t Index; /* the caller's own use */
} VPortBwPair;

/* ------------------------------------------------------- WWPN choice */

/* Byte values handed out for the physical port; -1 when free. */
VTAPI_EXPORT extern int32_t g_VPortWWNs[VTAPI_MAX_VPORTS];
/* The byte the user gave for the next vPort, or -1 for none. */
VTAPI_EXPORT extern int32_t g_UserVPortWWNByte;

VTAPI_EXPORT void initVPortWWNArray(void);
/* 1 when no port of the adapter list (nor a vPort slot) has this WWPN. */
VTAPI_EXPORT uint32_t isUniqueVirtualPortWWPN(const uint8_t *wwpn);
/* Chooses `count` new byte values into g_VPortWWNs.  0, or -1 when a count
 * below 1 is asked or not enough values can be found. */
VTAPI_EXPORT int32_t populateVPortWWNArray(const uint8_t *physicalWWPN, int32_t count, uint32_t physicalPort,
                                           uint32_t option);
/* The WWN of one new vPort of `adapter` (node and port name are the same
 * eight bytes; `which` 0 asks for the node name, 1 for the port name).
 * 293 when the user's byte is not above 3 or gives a WWPN in use. */
VTAPI_EXPORT uint32_t GenerateVPortWWN(const AdapterNode *adapter, uint8_t *out, uint32_t which);
/* A random byte, rand() & 255 with the generator seeded once with the
 * current time plus the process ID.  Replace it to choose the bytes. */
VTAPI_EXPORT uint32_t GetVPortRandomByte(void);

/* ---------------------------------------------------- bandwidth model */

/* Payload line rate in Gb/s of a port speed in Gb/s. */
VTAPI_EXPORT double GetQoSMaxLineRate(uint32_t speed);
/* Whole percent of the port that `value` Gb/s is (truncated). */
VTAPI_EXPORT uint32_t SpeedToPercentage(uint32_t speed, double value);
/* Gb/s of `percent` of the port; below 1.0 the result is multiplied by
 * 1024/1000. */
VTAPI_EXPORT double PercentageToSpeed(uint32_t percent, uint32_t speed);

/* available = maximum - (locked percentage values + reserved values).
 * 378 (available stored as 0) when that is below 0. */
VTAPI_EXPORT uint32_t CalculateRemainingPercentageBW(VPortQoSList *list);
/* `included` plus the values of every entry of type 0 or 1. */
VTAPI_EXPORT uint32_t GetTotalPercentageBW(const VPortQoSList *list, uint32_t included);
/* Sum of the unlocked percentage entries. */
VTAPI_EXPORT uint32_t GetUnlockedPercentBw(const VPortQoSList *list);
/* Sets the value (below 101, on a QoS-enabled vPort); the old value stays
 * when the recomputation fails. */
VTAPI_EXPORT uint32_t SetQoSValType(VPortQoSEntry *vPort, VPortQoSList *list, uint32_t value);
/* Sets a percentage, taking bandwidth from the others when it grows. */
VTAPI_EXPORT uint32_t SetPercentBwFor(VPortQoSEntry *vPort, VPortQoSList *list, uint32_t percent);
VTAPI_EXPORT uint32_t StealPercentBwFor(VPortQoSEntry *vPort, VPortQoSList *list, uint32_t newValue);
VTAPI_EXPORT uint32_t StealPercentFromOthers(VPortQoSEntry *vPort, VPortQoSList *list, uint32_t newValue,
                                             double fraction);
/* qsort order of VPortBwPair: by Value * 256 + VPortId, largest first. */
VTAPI_EXPORT int CompareBw(const void *a, const void *b);

/* ------------------------------------------------ vPorts of a port */

/* vPorts the port may still get (0 on a port that takes none). */
VTAPI_EXPORT uint32_t GetNumberOfAvailableVports(const SDMDevice *device);
/* vPorts of the port on which QoS may be set. */
VTAPI_EXPORT uint32_t GetMaxVportsSupportQOS(const SDMDevice *device);

/* Lists a vPort just created on `physical`: its record joins both device
 * lists, a node for it the AdapterList, and its WWPN the physical node's
 * vPort table.  The adapter tree gets it at the next refresh. */
VTAPI_EXPORT uint32_t AddNewvPortToAdapterList(const SDMDevice *physical, const uint8_t *vportWWPN);

/* Creates a vPort on a physical port (a listed device).  Without a WWPN one
 * is generated (GenerateVPortWWN); without a WWNN the WWPN serves as both.
 * The WWPN tried is stored in createdWWPN when that is not null, also when
 * libvtsdm refuses the creation. */
uint32_t CreateVirtualPortOnDevice(SDMDevice *physical, const uint8_t *wwnn, const uint8_t *wwpn, uint8_t *createdWWPN,
                                   uint16_t *vportId);
uint32_t DeleteVirtualPortOnDevice(SDMDevice *physical, const uint8_t *vportWWPN);

/* The QoS list of the port's vPorts (their values read now); released with
 * FreeVirtualPortQoSList. */
uint32_t GetVirtualPortQoSList(const SDMDevice *physical, VPortQoSList *list);
void FreeVirtualPortQoSList(VPortQoSList *list);
/* Sets one vPort's QoS.  A percentage takes what it needs from the other
 * vPorts; the vPorts with the IDs in `lockedIds` are locked for this
 * change.  Every vPort whose value changes is written, lowered ones first;
 * a refused change writes none. */
uint32_t SetVirtualPortQoS(SDMDevice *physical, const uint8_t *vportWWPN, const SDQoS *qos, const uint16_t *lockedIds,
                           uint32_t lockedCount);

/* The same for the command line, with the message for the user in
 * `message` (size bytes).  userByte -1 draws the vPort's byte at random. */
VTAPI_EXPORT uint32_t CreateVPortForHBA(SDMDevice *physical, int32_t userByte, uint8_t *createdWWPN, uint16_t *vportId,
                                        char *message, uint32_t size);
VTAPI_EXPORT uint32_t DeleteVPortForHBA(SDMDevice *physical, const uint8_t *vportWWPN, char *message, uint32_t size);
VTAPI_EXPORT uint32_t DeleteAllVPortsForHBA(SDMDevice *physical, char *message, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif /* VT_CONFIG_VPORT_H */
