// Releases an owned array and nulls the pointer that held it, so that a second release is harmless.
#pragma once

template <class T>
void free_Array(T*& array)
{
    delete[] array;
    array = nullptr;
}
