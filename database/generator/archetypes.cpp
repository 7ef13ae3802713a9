#include "database/generator/archetypes.h"

namespace tavrik::generator {
namespace {

using Text = std::string_view;

// ---- Texts ---------------------------------------------------------------------------------------------------------
// %f the family's word, %h a host name, %n a number, %x eight hexadecimal digits, %w a word of the rule's own.

constexpr Text kAutorunTexts[] = {
    "[autorun]\r\nopen=%w.exe\r\nshellexecute=%w.exe\r\n",
    "shell\\open\\command=%w.exe -%n",
    "%w\\%f.exe",
    "Software\\Microsoft\\Windows\\CurrentVersion\\Run",
    "RECYCLER\\S-1-5-21-%n-%n\\%w.exe",
    "%f_mutex_%x",
    "NoDriveTypeAutoRun",
    "copy /y \"%w\" \"%f%n\"",
    ":\\autorun.inf",
    "Hidden%n %w",
    "attrib +s +h %w.exe",
};
constexpr Text kPasswordTexts[] = {
    "?act=%w&account=%s&pin=%n",
    "http://%h/%w/post.asp",
    "%w.exe_%f",
    "Software\\%f\\Accounts\\%n",
    "elementclient_%w.exe",
    "SavedLogins_%x",
    "pstorec_%f.dll",
    "user=%s&pass=%s&srv=%n&id=%x",
    "WindowText: %w %n",
    "%f hook %x",
    "logins.%w.json",
};
constexpr Text kDownloaderTexts[] = {
    "http://%h/%w/%n.exe", "http://%h/gate.php?id=%x",
    "\\%w%n.tmp",          "User-Agent: %f/%n.0",
    "update_%w.dat",       "GET /%w/%x HTTP/1.0\r\nHost: %h\r\n",
    "open %w %n",          "urlmon_%f",
    "Accept: */*; %w",     "cmd.exe /c del %w.bat",
};
constexpr Text kDropperTexts[] = {
    "%TEMP%\\%w_%n.exe",
    "\\drivers\\%w.sys",
    "Error %n: %w",
    "payload_%x",
    "@echo off\r\n:%w\r\ndel %1\r\nif exist %1",
    "svchost.exe -k %f",
    "SYSTEM\\CurrentControlSet\\Services\\%w",
    "Global\\%f-%x",
    "rundll32.exe %w.dll,%f",
    "install %w %n",
};
constexpr Text kBackdoorTexts[] = {
    "%h:%n",         "PRIVMSG #%f :%w %n",   "bot_%w.%x",           "JOIN #%w %f",     "cmd.exe /k %w",
    "keylog_%f.txt", "screenshot %n %w.jpg", "uid=%x&os=%n&ver=%w", "%f remote %n.%n", "PING :%x",
    "udpflood %w",
};
constexpr Text kInstallerTexts[] = {
    "http://%h/toolbar/%w?aff=%n",
    "Software\\%f\\%w",
    "Thank you for installing %w!",
    "SetupId=%x",
    "/verysilent /aff=%n /%w",
    "uninstall_%f_%n",
    "EULA_%w.rtf",
    "%f Toolbar %n",
    "offers_%w.json",
    "NSIS_%x",
};
constexpr Text kScriptTexts[] = {
    "WScript.CreateObject(\"%w.Shell%n\")",
    "On Error Resume Next ' %f",
    "#include <%w.au3>",
    "$%w = %n",
    "@%f_%x",
    "FileInstall(\"%w.exe\", @TempDir)",
    ">>>%f script %n<<<",
    "Sub %w_%n()",
    "powershell -enc %x%x",
};
constexpr Text kDriverTexts[] = {
    "\\Device\\%f%n",
    "\\DosDevices\\%w",
    "\\Registry\\Machine\\System\\%w",
    "KeServiceDescriptorTable_%x",
    "d:\\work\\%f\\objfre\\i386\\%w.pdb",
    "hook %w %n",
    "\\SystemRoot\\system32\\%w.exe",
    "%f: unload %x",
};
constexpr Text kHijackTexts[] = {
    "%w_org.dll",      "\\system32\\%w.dll", "%f%n.tmp.dll", "inject %w into %n", "SeDebugPrivilege%x",
    "explorer_%f.exe", "Global\\hijack_%w",  "hosts %h",     "LoadAppInit_%n",
};
constexpr Text kManagedTexts[] = {
    "%f.Properties.Resources_%n",
    "get_%w%x",
    "System.%w",
    "v2.0.%n",
    "<Module>%f",
    "mscorlib_%w",
    "DecryptPayload%n",
    "%w.Form%n.resources",
    "#Strings_%x",
};
constexpr Text kFileVirusTexts[] = {
    "<%f virus by %w %n>", "*.exe|%w", "infected:%x", "host_%n_%w", "%f marker %x", "c:\\%w\\*.scr",
};
constexpr Text kBasicTexts[] = {
    "C:\\Program Files\\Microsoft Visual Studio\\VB98\\VB6.OLB",
    "D:\\%f\\%w.vbp",
    "http://%h/%w.txt",
    "Timer%n_%w",
    "wscript.shell.%f",
    "%w - Project%n",
    "Scripting.FileSystemObject.%x",
    "\\%w.exe",
    "HKCU\\Software\\%f\\%n",
};

// ---- Traits --------------------------------------------------------------------------------------------------------

constexpr uint32_t kPlainTraits[] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
constexpr uint32_t kOverlayTraits[] = {0, 0, 0, 1, 1, 17};
constexpr uint32_t kSmallTraits[] = {0, 0, 0, 0, 16};
constexpr uint32_t kPackerTraits[] = {0, 0, 0, 32, 36, 36, 34, 16, 20};
constexpr uint32_t kProtectorTraits[] = {0, 0, 0, 2, 4, 10, 18, 20};
constexpr uint32_t kDamagedTraits[] = {0, 0, 4, 20};
constexpr uint32_t kVirusTraits[] = {0, 2, 10, 10, 4};
constexpr uint32_t kBasicTraits[] = {0, 0, 64, 64, 192};

// ---- Archetypes ----------------------------------------------------------------------------------------------------

constexpr Archetype kArchetypes[] = {
    // Programs.
    {"Worm", "Autorun", 1, Toolchain::Msvc6, 6, "AUDS", kAutorunTexts, kPlainTraits},
    {"Worm", "Autorun", 1, Toolchain::Packer, 5, "AUS", kAutorunTexts, kPackerTraits},
    {"Worm", "", 1, Toolchain::Delphi, 4, "AUDO", kAutorunTexts, kPlainTraits},
    {"Worm", "", 1, Toolchain::MinGw, 3, "AMWN", kBackdoorTexts, kPlainTraits},
    {"TrojanPWS", "", 1, Toolchain::Msvc6, 7, "AUDI", kPasswordTexts, kSmallTraits},
    {"TrojanPWS", "", 1, Toolchain::Packer, 6, "AUD", kPasswordTexts, kPackerTraits},
    {"TrojanPWS", "", 1, Toolchain::Delphi, 4, "AUDW", kPasswordTexts, kPlainTraits},
    {"TrojanDownloader", "", 1, Toolchain::Msvc6, 8, "AUIL", kDownloaderTexts, kSmallTraits},
    {"TrojanDownloader", "", 1, Toolchain::Msvc9, 5, "AWID", kDownloaderTexts, kPlainTraits},
    {"TrojanDownloader", "", 1, Toolchain::Packer, 6, "ALU", kDownloaderTexts, kPackerTraits},
    {"TrojanDropper", "", 1, Toolchain::Msvc6, 6, "AUDS", kDropperTexts, kOverlayTraits},
    {"TrojanDropper", "", 1, Toolchain::MinGw, 4, "AMS", kDropperTexts, kOverlayTraits},
    {"TrojanDropper", "", 1, Toolchain::Protector, 4, "AU", kDropperTexts, kProtectorTraits},
    {"Backdoor", "", 1, Toolchain::Msvc6, 6, "AUDN", kBackdoorTexts, kPlainTraits},
    {"Backdoor", "", 1, Toolchain::Delphi, 5, "AUDOW", kBackdoorTexts, kPlainTraits},
    {"Backdoor", "", 1, Toolchain::Msvc14, 3, "AUDNC", kBackdoorTexts, kPlainTraits},
    {"Backdoor", "IrcBot", 1, Toolchain::Protector, 5, "AW", kBackdoorTexts, kProtectorTraits},
    {"TrojanSpy", "", 1, Toolchain::Msvc9, 4, "AUGD", kPasswordTexts, kPlainTraits},
    {"TrojanSpy", "", 1, Toolchain::Protector, 3, "AU", kPasswordTexts, kProtectorTraits},
    {"TrojanClicker", "", 1, Toolchain::Msvc6, 3, "AUIO", kInstallerTexts, kSmallTraits},
    {"Ransom", "", 1, Toolchain::Msvc14, 3, "AUDKG", kDropperTexts, kPlainTraits},
    {"Virus", "", 1, Toolchain::Msvc6, 4, "AU", kFileVirusTexts, kVirusTraits},
    {"FakeAlert", "", 1, Toolchain::Msvc9, 4, "AUGSV", kInstallerTexts, kOverlayTraits},
    {"Adware", "", 1, Toolchain::Delphi, 4, "AUDSO", kInstallerTexts, kOverlayTraits},
    {"Packed", "", 1, Toolchain::Packer, 6, "A", kDropperTexts, kPackerTraits},
    {"Packed", "", 1, Toolchain::Protector, 4, "A", kFileVirusTexts, kProtectorTraits},
    // Visual Basic programs; their number is that of the rules about them.
    {"TrojanDownloader", "VB", 1, Toolchain::VisualBasic, 3, "B", kBasicTexts, kBasicTraits},
    {"Worm", "VB", 1, Toolchain::VisualBasic, 3, "B", kAutorunTexts, kBasicTraits},
    {"Trojan", "VBInject", 1, Toolchain::VisualBasic, 2, "B", kBasicTexts, kBasicTraits},
    {"Backdoor", "VB", 1, Toolchain::VisualBasic, 2, "B", kBackdoorTexts, kBasicTraits},
    // Libraries.
    {"TrojanPWS", "", 0, Toolchain::Msvc6, 6, "AUI", kPasswordTexts, kSmallTraits},
    {"TrojanHijack", "", 0, Toolchain::Msvc6, 5, "AUD", kHijackTexts, kSmallTraits},
    {"TrojanHijack", "", 0, Toolchain::Msvc9, 3, "AUDH", kHijackTexts, kPlainTraits},
    {"Backdoor", "", 0, Toolchain::Msvc9, 3, "ADNU", kBackdoorTexts, kPlainTraits},
    {"Adware", "", 0, Toolchain::Msvc9, 3, "AUOED", kInstallerTexts, kPlainTraits},
    {"TrojanPWS", "", 0, Toolchain::Packer, 4, "AU", kPasswordTexts, kPackerTraits},
    {"TrojanSpy", "", 0, Toolchain::Delphi, 2, "AUDO", kPasswordTexts, kPlainTraits},
    {"Backdoor", "", 0, Toolchain::Msvc14, 2, "ADN", kBackdoorTexts, kPlainTraits},
    // Drivers, managed programs, installers, wrappers and damaged files.
    {"Rootkit", "", 2, Toolchain::Driver, 1, "TX", kDriverTexts, kSmallTraits},
    {"Rootkit", "", 3, Toolchain::Driver, 1, "TX", kDriverTexts, kPlainTraits},
    {"TrojanMSIL", "", 4, Toolchain::Managed, 1, "Y", kManagedTexts, kSmallTraits},
    {"TrojanMSIL", "", 5, Toolchain::Managed, 1, "Y", kManagedTexts, kSmallTraits},
    {"Adware", "", 8, Toolchain::Msvc6, 1, "AUDSGCV", kInstallerTexts, kOverlayTraits},
    {"TrojanDropper", "", 24, Toolchain::Packer, 1, "AU", kInstallerTexts, kPackerTraits},
    {"Worm", "AutoIt", 72, Toolchain::Msvc9, 1, "AUGSVON", kScriptTexts, kOverlayTraits},
    {"Trojan", "Batch", 80, Toolchain::Packer, 1, "AU", kScriptTexts, kPackerTraits},
    {"Virus", "Broken", 144, Toolchain::Protector, 1, "AU", kFileVirusTexts, kDamagedTraits},
    {"Trojan", "Script", 192, Toolchain::Protector, 1, "AM", kScriptTexts, kDamagedTraits},
};

// ---- Modules -------------------------------------------------------------------------------------------------------

constexpr Text kKernel[] = {
    "GetProcAddress",
    "LoadLibraryA",
    "VirtualProtect",
    "VirtualAlloc",
    "VirtualFree",
    "ExitProcess",
    "CreateFileA",
    "WriteFile",
    "ReadFile",
    "CloseHandle",
    "GetModuleHandleA",
    "GetModuleFileNameA",
    "CreateThread",
    "Sleep",
    "CopyFileA",
    "DeleteFileA",
    "GetDriveTypeA",
    "GetLogicalDrives",
    "CreateMutexA",
    "OpenProcess",
    "WriteProcessMemory",
    "ReadProcessMemory",
    "CreateRemoteThread",
    "CreateToolhelp32Snapshot",
    "Process32First",
    "Process32Next",
    "IsDebuggerPresent",
    "GetTickCount",
    "WinExec",
    "SetFileAttributesA",
    "GetTempPathA",
    "GetSystemDirectoryA",
    "FindResourceA",
    "LoadResource",
    "SizeofResource",
    "LockResource",
    "lstrcpyA",
    "lstrcatA",
    "CreateProcessA",
    "TerminateProcess",
};
constexpr Text kUser[] = {
    "MessageBoxA",     "SetWindowsHookExA",   "UnhookWindowsHookEx",
    "CallNextHookEx",  "GetForegroundWindow", "FindWindowA",
    "GetWindowTextA",  "SendMessageA",        "PostMessageA",
    "wsprintfA",       "GetAsyncKeyState",    "GetKeyState",
    "SetTimer",        "DefWindowProcA",      "RegisterClassA",
    "CreateWindowExA", "EnumWindows",         "ShowWindow",
};
constexpr Text kAdvapi[] = {
    "RegOpenKeyExA",    "RegSetValueExA",   "RegCloseKey",           "RegCreateKeyExA",
    "RegQueryValueExA", "OpenProcessToken", "LookupPrivilegeValueA", "AdjustTokenPrivileges",
    "OpenSCManagerA",   "CreateServiceA",   "StartServiceA",         "RegisterServiceCtrlHandlerA",
    "SetServiceStatus", "GetUserNameA",     "CryptAcquireContextA",
};
constexpr Text kShell[] = {"ShellExecuteA", "SHGetSpecialFolderPathA", "SHChangeNotify", "SHFileOperationA",
                           "ExtractIconA"};
constexpr Text kWinInet[] = {"InternetOpenA",    "InternetOpenUrlA", "InternetReadFile", "InternetCloseHandle",
                             "InternetConnectA", "HttpOpenRequestA", "HttpSendRequestA", "DeleteUrlCacheEntryA"};
constexpr Text kUrlmon[] = {"URLDownloadToFileA", "ObtainUserAgentString", "URLDownloadToCacheFileA"};
constexpr Text kSockets[] = {"WSAStartup",    "socket", "connect", "send", "recv", "closesocket",
                             "gethostbyname", "#115",   "#23",     "#4",   "#16"};
constexpr Text kOldSockets[] = {"#115", "#57", "#52", "#9", "#23", "#4", "#19", "#16", "#3"};
constexpr Text kGdi[] = {
    "BitBlt", "CreateCompatibleBitmap", "CreateCompatibleDC", "SelectObject", "GetDIBits", "DeleteObject", "TextOutA"};
constexpr Text kComCtl[] = {"#17", "InitCommonControlsEx", "ImageList_Create", "ImageList_AddMasked"};
constexpr Text kOle[] = {"CoInitialize", "CoCreateInstance", "CoUninitialize", "CoTaskMemFree", "OleInitialize"};
constexpr Text kOleAut[] = {"#2", "#4", "#6", "#9", "#12", "SysFreeString", "VariantClear"};
constexpr Text kCrt[] = {"malloc", "free",          "printf",    "exit",        "memset",
                         "strcmp", "__getmainargs", "_initterm", "_XcptFilter", "__set_app_type"};
constexpr Text kBasicRuntime[] = {
    "#100",
    "#595",
    "#598",
    "#632",
    "#648",
    "#685",
    "__vbaExceptHandler",
    "__vbaStrCopy",
    "__vbaFreeStr",
    "__vbaHresultCheckObj",
    "MethCallEngine",
    "EVENT_SINK_AddRef",
    "DllFunctionCall",
    "_CIcos",
    "_adj_fptan",
};
constexpr Text kNative[] = {
    "IoCreateDevice",
    "IoCreateSymbolicLink",
    "IoDeleteDevice",
    "IofCompleteRequest",
    "KeServiceDescriptorTable",
    "MmGetSystemRoutineAddress",
    "ObReferenceObjectByHandle",
    "PsLookupProcessByProcessId",
    "ExAllocatePoolWithTag",
    "ExFreePoolWithTag",
    "RtlInitUnicodeString",
    "ZwQuerySystemInformation",
    "DbgPrint",
};
constexpr Text kHal[] = {"KfAcquireSpinLock", "KfReleaseSpinLock", "KeGetCurrentIrql", "READ_PORT_UCHAR"};
constexpr Text kManagedRuntime[] = {"_CorExeMain", "_CorDllMain"};
constexpr Text kVersion[] = {"GetFileVersionInfoA", "VerQueryValueA", "GetFileVersionInfoSizeA"};
constexpr Text kCrypt[] = {"CryptUnprotectData", "CryptProtectData", "CertOpenStore"};
constexpr Text kHelper[] = {"PathFileExistsA", "PathFindFileNameA", "StrStrIA", "SHDeleteKeyA"};
constexpr Text kTimers[] = {"timeGetTime", "PlaySoundA", "mciSendStringA"};
constexpr Text kProcesses[] = {"EnumProcesses", "EnumProcessModules", "GetModuleBaseNameA"};
constexpr Text kAdapters[] = {"GetAdaptersInfo", "IcmpSendEcho", "IcmpCreateFile"};
constexpr Text kNetwork[] = {"NetShareEnum", "NetUserAdd", "NetApiBufferFree"};
constexpr Text kNetworkResources[] = {"WNetAddConnection2A", "WNetOpenEnumA", "WNetEnumResourceA"};
constexpr Text kCapture[] = {"capCreateCaptureWindowA", "capGetDriverDescriptionA"};
constexpr Text kCabinet[] = {"#20", "#22", "#23"};
constexpr Text kImages[] = {"ImageNtHeader", "MapFileAndCheckSumA", "CheckSumMappedFile"};
constexpr Text kTerminal[] = {"WTSEnumerateSessionsA", "WTSFreeMemory", "WTSQueryUserToken"};

constexpr ModuleFunctions kModules[] = {
    {'A', "kernel32.dll", kKernel},
    {'U', "USER32.dll", kUser},
    {'D', "ADVAPI32.dll", kAdvapi},
    {'S', "SHELL32.dll", kShell},
    {'I', "WININET.dll", kWinInet},
    {'L', "urlmon.dll", kUrlmon},
    {'N', "WS2_32.dll", kSockets},
    {'W', "WSOCK32.dll", kOldSockets},
    {'G', "GDI32.dll", kGdi},
    {'C', "COMCTL32.dll", kComCtl},
    {'O', "ole32.dll", kOle},
    {'E', "OLEAUT32.dll", kOleAut},
    {'M', "msvcrt.dll", kCrt},
    {'B', "MSVBVM60.DLL", kBasicRuntime},
    {'T', "ntoskrnl.exe", kNative},
    {'X', "HAL.dll", kHal},
    {'Y', "mscoree.dll", kManagedRuntime},
    {'V', "VERSION.dll", kVersion},
    {'K', "CRYPT32.dll", kCrypt},
    {'H', "SHLWAPI.dll", kHelper},
    {'P', "WINMM.dll", kTimers},
    {'Q', "PSAPI.DLL", kProcesses},
    {'R', "iphlpapi.dll", kAdapters},
    {'F', "NETAPI32.dll", kNetwork},
    {'J', "MPR.dll", kNetworkResources},
    {'Z', "AVICAP32.dll", kCapture},
    {'a', "Cabinet.dll", kCabinet},
    {'b', "imagehlp.dll", kImages},
    {'c', "WTSAPI32.dll", kTerminal},
};

constexpr Text kExportModules[] = {"lpk.dll",  "usp10.dll",   "ws2help.dll", "helper.dll",
                                   "hook.dll", "plugin.dll",  "inject.dll",  "winsvc.dll",
                                   "bho.dll",  "msimg32.dll", "comres.dll",  "update.dll"};
constexpr Text kExportNames[] = {
    "DllGetClassObject", "ServiceMain",      "DllCanUnloadNow", "DllRegisterServer", "DllUnregisterServer",
    "InstallHook",       "UninstallHook",    "LpkInitialize",   "LpkTabbedTextOut",  "ScriptApplyDigitSubstitution",
    "StartWork",         "StopWork",         "JumpHookOn",      "JumpHookOff",       "ServiceHandler",
    "DllMain",           "GetVersionString", "SetParam",        "EntryProc",         "RunW",
};
constexpr Text kForms[] = {"Form1",     "frmMain",   "Form2",     "frmLogin", "frmHidden", "Form3",
                           "frmServer", "frmLoader", "frmSplash", "Form4",    "frmTimer",  "frmChat"};
constexpr Text kBasicModules[] = {"Module1",   "modMain",     "modCrypt",    "modInject", "Module2", "modSocket",
                                  "clsRC4",    "modRegistry", "modApi",      "clsZip",    "Module3", "modSpread",
                                  "modDrives", "clsHttp",     "modResource", "modUsb"};
constexpr Text kMethods[] = {
    "Form_Load",
    "DecryptString",
    "Form_Unload",
    "Timer1_Timer",
    "Main",
    "RunPE",
    "InjectCode",
    "CopyToDrives",
    "Command1_Click",
    "Winsock1_Connect",
    "Winsock1_DataArrival",
    "Timer2_Timer",
    "SendKeys",
    "GetFileBytes",
    "WriteAutorun",
    "HideProcess",
    "Download",
    "RC4",
    "Form_QueryUnload",
    "Form_Initialize",
};
constexpr Text kResourceNames[] = {"SETUP",  "PAYLOAD", "DVCLAL", "PACKAGEINFO", "TFORM1", "MAINICON",
                                   "CUSTOM", "DATA1",   "SCRIPT", "BIN",         "EXE",    "LOADER"};
constexpr Text kResourceTypeNames[] = {"TYPELIB", "DLLFILE",  "CUSTOM",  "BINRES", "EXEFILE",
                                       "SYSFILE", "REGISTRY", "PAYLOAD", "CFG",    "ZIP"};
constexpr Text kOddSections[] = {".adata", ".aspack",  "pebundle", ".petite", ".nsp0",    ".nsp1",  "nsp2",
                                 ".vmp0",  ".vmp1",    ".perplex", ".packed", "PEPACK!!", ".ypack", ".svkp",
                                 ".ndata", ".shared",  ".boom",    ".crypt",  ".winlic",  "ExeS",   ".taz",
                                 ".mackt", "kkrunchy", ".spack",   "BJFnt",   ".vlog"};

} // namespace

std::span<const Archetype> Archetypes() {
    return kArchetypes;
}

std::span<const ModuleFunctions> Modules() {
    return kModules;
}

std::span<const std::string_view> ExportModules() {
    return kExportModules;
}

std::span<const std::string_view> ExportNames() {
    return kExportNames;
}

std::span<const std::string_view> FormNames() {
    return kForms;
}

std::span<const std::string_view> ModuleNames() {
    return kBasicModules;
}

std::span<const std::string_view> MethodNames() {
    return kMethods;
}

std::span<const std::string_view> ResourceNames() {
    return kResourceNames;
}

std::span<const std::string_view> ResourceTypeNames() {
    return kResourceTypeNames;
}

std::span<const std::string_view> OddSectionNames() {
    return kOddSections;
}

} // namespace tavrik::generator
