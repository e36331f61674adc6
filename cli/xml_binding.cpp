// XML elements of persistent target bindings and of LUN selection.
#include "cli/xml_binding.h"

#include <string>

#include "cli/report.h"
#include "cli/xml.h"
#include "vtapi_cli.h"

using vt::cli::XmlLine;

namespace {

const char *StateText(int32_t state) {
    switch (state) {
    case TARN_BINDING_ONLINE: return "Online";
    case TARN_BINDING_OFFLINE: return "Offline";
    default: return "Not Present";
    }
}

void Binding(const FoTargetData *b, int32_t state, bool format2) {
    const uint8_t *n = b->WWNN, *p = b->WWPN, *id = b->PortId;
    XmlLine("\t<PersistentBinding>");
    XmlLine("\t\t<TargetID>%u</TargetID>", b->TargetNumber);
    if (format2) XmlLine("\t\t<DeviceInstance>%u</DeviceInstance>", b->DeviceInstance);
    XmlLine("\t\t<WWNN>%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x</WWNN>", n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7]);
    XmlLine("\t\t<WWPN>%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x</WWPN>", p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]);
    XmlLine("\t\t<PortID>%02x:%02x:%02x</PortID>", id[0], id[1], id[2]);
    if (format2) {
        XmlLine("\t\t<Control>%02x</Control>", b->Control);
        XmlLine("\t\t<Status>%s</Status>", StateText(state));
    }
    XmlLine("\t</PersistentBinding>");
}

void Lun(const char *element, uint32_t number, const LunEntry *lun, bool format2) {
    XmlLine("\t\t<%s>", element);
    XmlLine("\t\t\t<LUN>%u</LUN>", number);
    if (format2 && lun != nullptr) {
        std::string product = vt::cli::FieldText(lun->VendorProduct);
        while (!product.empty() && product.back() == ' ') product.pop_back();
        XmlLine("\t\t\t<Product>%s</Product>", product.c_str());
    }
    XmlLine("\t\t</%s>", element);
}

}  // namespace

extern "C" {

VTAPI_EXPORT void XML_EmitHBATargetPersistBinding(const FoTargetData *binding, int32_t state) {
    if (bXmlOutPut2) {
        XML_2_EmitHBATargetPersistBinding(binding, state);
        return;
    }
    if (binding != nullptr) Binding(binding, state, false);
}

VTAPI_EXPORT void XML_2_EmitHBATargetPersistBinding(const FoTargetData *binding, int32_t state) {
    if (binding != nullptr) Binding(binding, state, true);
}

VTAPI_EXPORT void XML_3_EmitJustOneHBATargetPersistBinding(const SDMDevice *device, const FoTargetData *binding,
                                                           int32_t state) {
    if (device == nullptr || binding == nullptr) return;
    XML_2_EmitHBAHeaderFooter(device, 1, 0);
    Binding(binding, state, true);
    XmlLine("\t</HBA>");
}

VTAPI_EXPORT void XML_EmitSelectedLun(uint32_t lunNumber, const LunEntry *lun) {
    if (bXmlOutPut2) {
        XML_2_EmitSelectedLun(lunNumber, lun);
        return;
    }
    Lun("SelectedLUN", lunNumber, lun, false);
}

VTAPI_EXPORT void XML_2_EmitSelectedLun(uint32_t lunNumber, const LunEntry *lun) {
    Lun("SelectedLUN", lunNumber, lun, true);
}

VTAPI_EXPORT void XML_EmitUnselectedLun(uint32_t lunNumber, const LunEntry *lun) {
    if (bXmlOutPut2) {
        XML_2_EmitUnselectedLun(lunNumber, lun);
        return;
    }
    Lun("UnselectedLUN", lunNumber, lun, false);
}

VTAPI_EXPORT void XML_2_EmitUnselectedLun(uint32_t lunNumber, const LunEntry *lun) {
    Lun("UnselectedLUN", lunNumber, lun, true);
}

}  // extern "C"
