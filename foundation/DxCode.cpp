#include "foundation/DxCode.h"

int dxCodeOf(const std::exception_ptr& failure, int catchAllCode) noexcept
{
    if (!failure)
        return catchAllCode;
    try {
        std::rethrow_exception(failure);
    } catch (int code) {
        return code;
    } catch (...) {
        return catchAllCode;
    }
}
