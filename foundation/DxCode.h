// The failure frame of every diagnosed operation: raise an int, catch it in the same function,
// keep the first code.
//
//     try {
//         if (!isSelfApproving()) throw getSelfDX_Code();
//         ...                                   // raises ints, or re-raises a callee's code
//     } catch (...) {
//         keepFirstDxCode(std::current_exception(), 46);
//     }
//     return isSelfSatisfied();
//
// Each class that holds a DX code has a `keepFirstDxCode(failure, catchAllCode)` member that
// stores `dxCodeOf(failure, catchAllCode)` only while it holds no code yet. Raising 0 is a quiet
// early exit: it is kept as "no code".
#pragma once

#include <exception>

// The code a frame keeps for a caught exception: the int that was raised, or the frame's own
// catch-all code for anything else (a UTL_Exception, std::bad_alloc, a raised bool).
int dxCodeOf(const std::exception_ptr& failure, int catchAllCode) noexcept;
