#include "server/eventkindname.h"

std::string EventKindName(int kind)
{
    // The gaps (no 70, nothing from 101 to 199) and the odd spellings
    // ("eDoc_libExecuteMacro", "e_Doc_Analysis") belong to the protocol.
    switch (kind) {
    case 0:
        return "eSys_OnUndef";
    case 10:
        return "eSys_Info";
    case 20:
        return "eSys_Answer";
    case 30:
        return "eSys_OnClose";
    case 40:
        return "eSys_Connect";
    case 50:
        return "eSys_Disconnect";
    case 60:
        return "eSys_Exit";
    case 80:
        return "eSys_Internal";
    case 90:
        return "eSys_TuneOpt";
    case 100:
        return "eSys_TuneOptRsvS";
    case 200:
        return "eSys_TuneOptRsvE";
    case 201:
        return "eApp_OnStart";
    case 202:
        return "eApp_OnOpenDocument";
    case 203:
        return "eApp_OnCloseDocument";
    case 204:
        return "eApp_OnQuit";
    case 205:
        return "eDoc_Modify";
    case 206:
        return "eDoc_OnSelectionChange";
    case 207:
        return "eDoc_OnDatabaseChanged";
    case 208:
        return "eDoc_OnChange";
    case 209:
        return "eDoc_Change";
    case 210:
        return "eDoc_OnPropertyChange";
    case 211:
        return "eDoc_OnPreClose";
    case 212:
        return "eDoc_LUMONetList";
    case 213:
        return "eDoc_FathomData";
    case 214:
        return "eDoc_BRIOScript";
    case 215:
        return "eDoc_VBScript";
    case 216:
        return "eDoc_ANF";
    case 217:
        return "eDoc_LibCategories";
    case 218:
        return "eDoc_LibElements";
    case 219:
        return "eDoc_LibElemSymbols";
    case 220:
        return "eDoc_LibElemParams";
    case 221:
        return "eDoc_LibElemMacro";
    case 222:
        return "eDoc_LibIFF";
    case 223:
        return "eDoc_Lib";
    case 224:
        return "eDoc_UserDefined";
    case 225:
        return "eDoc_Synthesize";
    case 226:
        return "eDoc_libExecuteMacro";
    case 227:
        return "eDoc_CrossProbe";
    case 228:
        return "eDoc_Binary";
    case 229:
        return "e_Doc_Analysis";
    default:
        return "unknown event type";
    }
}
