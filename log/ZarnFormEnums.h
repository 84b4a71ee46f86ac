// The enumerations of the log engine: the kind of log, the form variables and the form tags.
#pragma once

enum Zarn_LOG
{
    Zarn_LOG_UNSET = -1,
    Zarn_LOG_HTML = 0,
    Zarn_LOG_TEXT = 1, // has strings of its own, but recording refuses it
};

// A form variable is its index in the sorted name table (string id 12001 + value); the table is
// searched by bisection, so a resource module may rename the variables but must keep their order.
enum Zarn_FORM_VAR
{
    Zarn_FORM_VAR_UNKNOWN = -1, // what a look-up of a name the table lacks gives
    Zarn_FORM_VAR_COMPANY_KNOW_BASE = 0,
    Zarn_FORM_VAR_COMPANY_NAME_LONG = 1,
    Zarn_FORM_VAR_COMPANY_NAME_SHORT = 2,
    Zarn_FORM_VAR_COMPANY_WEBSITE = 3,
    Zarn_FORM_VAR_DAY = 4,
    Zarn_FORM_VAR_ENTRY_COLOR = 5,
    Zarn_FORM_VAR_ENTRY_ID = 6,
    Zarn_FORM_VAR_FILE_VERSION = 7,
    Zarn_FORM_VAR_HOME_DIRECTORY = 8,
    Zarn_FORM_VAR_HOURS = 9,
    Zarn_FORM_VAR_LOGFILE_NAME = 10,
    Zarn_FORM_VAR_MILLISECONDS = 11,
    Zarn_FORM_VAR_MINUTES = 12,
    Zarn_FORM_VAR_MODULE_FILE_NAME = 13,
    Zarn_FORM_VAR_MODULE_NAME = 14,
    Zarn_FORM_VAR_MONTH = 15,
    Zarn_FORM_VAR_NAME_OF_DOMAIN = 16,
    Zarn_FORM_VAR_NAME_OF_HOST = 17,
    Zarn_FORM_VAR_NAME_OF_SESSION = 18,
    Zarn_FORM_VAR_NAME_OF_USER = 19,
    Zarn_FORM_VAR_PROCESS_ID = 20,
    Zarn_FORM_VAR_PRODUCT_NAME = 21,
    Zarn_FORM_VAR_PRODUCT_VERSION = 22,
    Zarn_FORM_VAR_SECONDS = 23,
    Zarn_FORM_VAR_SITUATION_DSCRP = 24,
    Zarn_FORM_VAR_SITUATION_ID = 25,
    Zarn_FORM_VAR_SUITE_NAME = 26,
    Zarn_FORM_VAR_SYS_INFO_ENV_APP = 27,
    Zarn_FORM_VAR_SYS_INFO_ENV_OP = 28,
    Zarn_FORM_VAR_SYS_INFO_VARS_ENV = 29,
    Zarn_FORM_VAR_YEAR = 30,
};
constexpr int Zarn_FORM_VAR_Qty = 31;

// The tag values of a data set, each shown by the form variable of the same name.
enum Zarn_FORM_TAG
{
    Zarn_FORM_TAG_COMPANY_KNOW_BASE = 0,
    Zarn_FORM_TAG_COMPANY_NAME_LONG = 1,
    Zarn_FORM_TAG_COMPANY_NAME_SHORT = 2,
    Zarn_FORM_TAG_COMPANY_WEBSITE = 3,
    Zarn_FORM_TAG_FILE_VERSION = 4,
    Zarn_FORM_TAG_HOME_DIRECTORY = 5,
    Zarn_FORM_TAG_MODULE_FILE_NAME = 6,
    Zarn_FORM_TAG_MODULE_NAME = 7,
    Zarn_FORM_TAG_NAME_OF_DOMAIN = 8,
    Zarn_FORM_TAG_NAME_OF_HOST = 9,
    Zarn_FORM_TAG_NAME_OF_SESSION = 10,
    Zarn_FORM_TAG_NAME_OF_USER = 11,
    Zarn_FORM_TAG_PRODUCT_NAME = 12,
    Zarn_FORM_TAG_PRODUCT_VERSION = 13,
    Zarn_FORM_TAG_SUITE_NAME = 14,
};
constexpr int Zarn_FORM_TAG_Qty = 15;

// Section mask bits of a form.
constexpr unsigned long SECTION_HEAD = 1;
constexpr unsigned long SECTION_BODY = 2;
constexpr unsigned long SECTION_TAIL = 4;
