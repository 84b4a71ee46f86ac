// Forward declarations of the monitor's classes, and the function types that callers supply.
#pragma once

#include "foundation/IntegerWidths.h"
#include "platform/WinTypes.h"

class Zarn;
class ZarnArgCursor;
class ZarnData;
class ZarnDataFile;
class ZarnDataForThread;
class ZarnScratchpad;
class UTL_String;

// A plug-in runs on the reporting thread, under the data set's lock, after the reports.
using ZarnPlugIn = bool (*)(const Zarn* monitor);

// The display function, shaped like MessageBoxW; its result is kept as the dialog's answer.
using ZarnDisplayDlgBoxFunction = int (*)(HWND parent, const wchar_t* text, const wchar_t* caption, unsigned int type);

// Decides whether a situation's traits pass a monitor's behaviour criteria.
using ZarnSituationResponseTraitsAssessor = bool (*)(const u64& criteria, const u64& traits);

// The proxy's "ProxyRespondToSituation" entry: enablements, instantiator id, the negated situation
// id, a format (always "%s") and the description. Non-zero on success.
using ZarnProxyRespondToSituation = int (*)(unsigned int enablements, i64 instantiatorID, int negatedSituationID,
                                            const wchar_t* format, const wchar_t* description);
