// The product's customisation of a monitor: gathers what is particular to one owning module (its
// resource modules, brand texts, form tags, log directory and names, assertiveness level), builds
// a data set from it and hands that data set to Zarn::create.
#pragma once

#include "foundation/IntegerWidths.h"
#include "log/ZarnFormEnums.h"
#include "monitor/ZarnChoices.h"
#include "monitor/ZarnFwd.h"
#include "platform/WinTypes.h"

#include <exception>

class ZRpbr;

// The owners that the class tells apart, by identifier.
constexpr long long ZGW_OWNER_CM = 0x80000040;
constexpr long long ZGW_OWNER_LOGON = 0x80010000;
constexpr long long ZGW_OWNER_PW = 0x80200000;
constexpr long long ZGW_OWNER_APS = 0x80000001;

// What the class knows of one owner.
struct ZarnOwnerRecord
{
    long long ownerID;
    const wchar_t* moduleName;    // loaded when the owner gives no resource module; null: none
    int brandTextID;              // brander text of MODULE_NAME and PRODUCT_NAME
    bool userNamesLogFile;        // a standalone owner's log file name begins with the user name
    unsigned int formNameStringID; // built-in string of the log form's file name
};

// The table of owners; the last row stands for any other owner. These rows are the only place
// where owners are told apart.
inline constexpr ZarnOwnerRecord kZarnOwners[] = {
    {ZGW_OWNER_CM, L"cm.exe", 18, false, 10009},
    {ZGW_OWNER_LOGON, L"Logon.exe", 19, true, 10009},
    {ZGW_OWNER_PW, L"pw.exe", 20, true, 10009},
    {ZGW_OWNER_APS, nullptr, 16, false, 10010},
    {0, nullptr, 16, false, 10009},
};

// The row of `ownerID`, or the last row.
const ZarnOwnerRecord& findZarnOwnerRecord(long long ownerID);

// Values of the status code 1 (getDX_Code1); 0 is success. Code 2 (getDX_Code2) carries the
// system's last error or another object's code where the operation has one. Plain ints: they are
// raised as ints and caught as ints.
constexpr int ZGW_CTOR_UNKNOWN_EXCEPTION = 1;
constexpr int ZGW_CTOR_NO_BOOTSTRAP_RESOURCES = 2; // forgotten at once
constexpr int ZGW_BRANDER_UNKNOWN_EXCEPTION = 3;
constexpr int ZGW_BRANDER_NOT_CREATED = 4; // code 2: ZRpbr::getSelfDX_Code
constexpr int ZGW_CREATE_MONITOR_FAILED = 5;
constexpr int ZGW_CUSTOMIZE_FAILED = 6;
constexpr int ZGW_CREATE_NO_DATA_SET = 7;
constexpr int ZGW_CUSTOMIZE_NO_DATA_SET = 9;
constexpr int ZGW_INIT_UNKNOWN_EXCEPTION = 10;
constexpr int ZGW_INIT_DATA_SET_FAILED = 11; // code 2: the data set's self DX code
constexpr int ZGW_INIT_NO_DATA_SET = 12;
constexpr int ZGW_INIT_AGAIN = 13;
constexpr int ZGW_INIT_NO_LOG_FILE_PATH = 14;
constexpr int ZGW_INIT_NO_DIRECTORY_STRING = 15;
constexpr int ZGW_INIT_NO_FILE_STRING = 16;
constexpr int ZGW_INIT_NO_TAG_VALUES = 17;
constexpr int ZGW_FILE_UNKNOWN_EXCEPTION = 18;
constexpr int ZGW_FILE_PATH_EMPTY = 19;
constexpr int ZGW_FILE_NO_DIRECTORY = 20;
constexpr int ZGW_FILE_UNKNOWN_TEXT_EMPTY = 21;
constexpr int ZGW_FORM_UNKNOWN_EXCEPTION = 22;
constexpr int ZGW_FORM_NAME_NOT_APPENDED = 23;
constexpr int ZGW_FORM_FOLDER_NOT_APPENDED = 24;
constexpr int ZGW_FORM_DIRECTORY_NOT_COPIED = 25;
constexpr int ZGW_FORM_NAME_EMPTY = 26;
constexpr int ZGW_FORM_NAME_NOT_LOADED = 27;
constexpr int ZGW_TEXT_NOT_LOADED = 28; // the form's folder name, or the "Unknown" text
constexpr int ZGW_FORM_FOLDER_EMPTY = 29;
constexpr int ZGW_FORM_FOLDER_TOO_LONG = 30;
constexpr int ZGW_LEVEL_UNKNOWN_EXCEPTION = 31;
constexpr int ZGW_LEVEL_KEY_NOT_OPENED = 32;
constexpr int ZGW_LEVEL_VALUE_UNUSABLE = 33;
constexpr int ZGW_LEVEL_VALUE_NOT_WRITTEN = 34;
constexpr int ZGW_DIR_UNUSABLE = 35;
constexpr int ZGW_DIR_NOT_SET = 36;
constexpr int ZGW_DIR_NOT_EXPANDED = 37;
constexpr int ZGW_DIR_NO_ROOM_FOR_SEPARATOR = 38;
constexpr int ZGW_DIR_NOT_CREATED = 43; // code 2: the last error
constexpr int ZGW_DIR_TOO_LONG = 44;
constexpr int ZGW_DIR_NOT_ASSIGNED = 45;
constexpr int ZGW_DIR_SECOND_PASS_UNKNOWN_EXCEPTION = 46;
constexpr int ZGW_DIR_FIRST_PASS_UNKNOWN_EXCEPTION = 47;
constexpr int ZGW_DIR_NO_HOME_DIRECTORY = 49;
constexpr int ZGW_DIR_NOT_A_DIRECTORY = 50; // code 2: 267
constexpr int ZGW_TAG_UNKNOWN_EXCEPTION = 56;
constexpr int ZGW_TAG_SOURCE_FAILED = 57;
constexpr int ZGW_TAG_NO_CAPACITY = 58;
constexpr int ZGW_TAG_BRAND_TEXT_FAILED = 59;
constexpr int ZGW_TAG_NO_BRANDER = 60;
constexpr int ZGW_TAG_NO_MODULE = 61; // code 2: the last error
constexpr int ZGW_TAGS_UNKNOWN_EXCEPTION = 62;
constexpr int ZGW_TAGS_UNKNOWN_TEXT_EMPTY = 63;
constexpr int ZGW_TAGS_NO_MEMORY = 64;
constexpr int ZGW_TAGS_NO_BRANDER = 65;

class ZarnDataZGW
{
public:
    // Constructs and initialises; throws the int status code 1 if that fails, and leaves the codes
    // readable through getDX_Code1 and getDX_Code2.
    ZarnDataZGW(long long ownerID, bool standalone, HINSTANCE resourceModuleInternal,
                HINSTANCE resourceModuleExternal, Zarn_LOG logType);

    // Virtual operations in slot order: customizeForOwner, freeResources, initialize, the destructor.
    // The place where a further subclass customises; makes no changes of its own.
    virtual bool customizeForOwner();

protected:
    virtual bool freeResources();
    // Called once, from the constructor.
    virtual bool initialize();

public:
    virtual ~ZarnDataZGW();

    // Hands the data set to Zarn::create: the new monitor, or null.
    Zarn* createZarnMonitor();
    // Destroys a monitor and nulls the pointer; a null monitor gives true.
    static bool destroyZarnMonitor(Zarn*& monitor);
    bool isOwnerRunningStandalone() const { return m_ownerStandalone; }
    static int getDX_Code1();
    static unsigned long getDX_Code2();

    // The log file's full path into `buffer`; empty unless `capacity` is at least 260 and the path
    // fits. Returns `buffer`.
    wchar_t* getLogFileFQPath(wchar_t* buffer, unsigned long long capacity);

    // Hands the brander (and, if `moduleName` is given, its module name) to the caller.
    void relinquishProductBrander(ZRpbr*& brander, UTL_String** moduleName);

    // ---- Settings and behaviour mapping ----

    static void mapBehaviorCriteriaZMI_ToEnablementsZMP(unsigned long long criteria, unsigned int& enablements);
    static void mapEnablementsZMP_ToBehaviorCriteriaZMI(unsigned int enablements, unsigned long long& criteria);
    // An invalid word gives false and sets the enablements to 11 and the level to 1.
    static bool mapEnablementsZMP_ToLogOutputLevel(unsigned int& enablements, unsigned long& level);
    // An invalid level gives false and sets the enablements to 11 and the level to 1.
    static bool mapLogOutputLevelToEnablementsZMP(unsigned long& level, unsigned int& enablements);
    static unsigned long long obtainBehaviorCriteria();
    // Sets the criteria of `data` (if given) and returns them, whatever the data set did.
    static unsigned long long updateBehaviorCriteria(ZarnData* data);
    static unsigned long obtainLogFileOutputLevel();
    static unsigned long obtainLogFileAgeLimit();
    static unsigned long long obtainLogFileByteCountLimit();
    // Sets the limit of `data` (if given) and returns it, whatever the data set did.
    static unsigned long long updateLogFileByteCountLimit(ZarnData* data);
    // 0 if log backup is enabled, 1 otherwise.
    static unsigned long obtainLogFileMaintenanceOperation();

    // ---- Log paths and form tags ----

    // The log directory with a trailing separator, in two passes (see the definition).
    static bool obtainLogDirectorySpecifier(UTL_String& directory, HINSTANCE module);
    static bool obtainLogTagValues(UTL_String*& values, int& quantity, long long ownerID, HINSTANCE const& module,
                                   ZRpbr* brander, int& code1, DWORD& code2);
    // One tag from its source; false for an empty value. `buffer` null: a local one of 1024.
    static bool obtainLogTagValue(UTL_String& value, Zarn_FORM_TAG tag, long long ownerID, HINSTANCE const& module,
                                  ZRpbr* brander, int& code1, DWORD& code2, wchar_t* buffer,
                                  unsigned long long capacity);
    // A tag from the monitor, else from `values`, else fresh from its source, else "Unknown".
    static bool getLogTagValue(UTL_String& value, Zarn_FORM_TAG tag, long long ownerID, HINSTANCE module,
                               ZRpbr* brander, const UTL_String* values, int quantity, Zarn* monitor);
    static void freeLogTagValues(UTL_String*& values, int& quantity);
    static bool obtainProductBrander(ZRpbr*& brander, UTL_String*& moduleName, bool& createdHere);
    static void destroyProductBrander(ZRpbr*& brander, UTL_String** moduleName);

protected:
    // Mask bit 2 clears the status codes, bit 4 frees the resources; passes below 1 do nothing.
    bool setMemberVarsToDefaults(int passes, unsigned long mask);
    // The level from the settings store, repairing a missing or out-of-range value; keeps its
    // status to itself.
    bool obtainAssertivenessLevel(Zarn_DX_MODE& mode);
    bool obtainLogDirectorySpecifier();
    bool learnLogFileFQPath(UTL_String& path);
    bool learnLogFormFQPath(UTL_String& path);
    bool obtainLogTagValues();
    bool obtainLogTagValue(UTL_String& value, Zarn_FORM_TAG tag, wchar_t* buffer, unsigned long long capacity);

private:
    // The frame's catch: an int raised is kept only while `code` holds none; anything else sets
    // the frame's own code.
    static void keepFirstDxCode(const std::exception_ptr& failure, int catchAllCode, int& code);
    static void keepFirstDxCode(const std::exception_ptr& failure, int catchAllCode)
    {
        keepFirstDxCode(failure, catchAllCode, m_selfDX_Code1);
    }

    bool freeResourceModuleExternal();
    bool getLogTagValue(UTL_String& value, Zarn_FORM_TAG tag);
    void freeLogTagValues();
    bool obtainProductBrander();
    void destroyProductBrander();

    ZarnDataZGW(const ZarnDataZGW&) = delete;
    ZarnDataZGW& operator=(const ZarnDataZGW&) = delete;

    bool m_productBranderIsOurs;
    bool m_resourceModuleExternalIsOurs;
    i64 m_ownerID;
    bool m_ownerStandalone;
    UTL_String* m_logDirectorySpecifier;
    UTL_String* m_logFileFQPath;
    Zarn_LOG m_logType;
    UTL_String* m_logTagValues;
    int m_logTagValuesQty;
    ZRpbr* m_productBrander;
    UTL_String* m_productBranderModuleName;
    ZarnData* m_dataSet;
    HINSTANCE m_resourceModuleExternal;

    // Shared by every instance and never locked: the library's own resource module, set once by
    // the first constructor that finds it null, and the status of the class's last operation.
    static HINSTANCE m_resourceModuleInternal;
    static int m_selfDX_Code1;
    static DWORD m_selfDX_Code2; // 32 bits, as the system's last error
};
