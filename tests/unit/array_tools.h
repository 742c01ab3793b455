// What the tests of arrays share.
#ifndef RV_ARRAY_TOOLS_H
#define RV_ARRAY_TOOLS_H

#include "array.h"

#include "allocation_failures.h"
#include "string_references.h"
#include "universe_fixture.h"

class Arrays : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        references_at_start = stringReferences();
    }

    // The problems of a call during which only `allowed` checked allocations succeed.
    template <class Call> std::string problemWithAllocations(long allowed, Call call)
    {
        withAllocations(allowed, call);
        return withoutLines(takeProblem());
    }
    // What the allocator and then the array functions report.
    static std::string outOfMemory(size_t bytes, const char* location, const char* then)
    {
        return "can't allocate " + std::to_string(bytes) +
               " bytes in core\\src\\array:" + location + "() | " + then;
    }
    // References to strings that were taken since the test began and not given back.
    int heldStrings() const { return stringReferences() - references_at_start; }

    int references_at_start = 0;
};

template <class T> std::vector<T> valuesOf(const RtArray* array)
{
    const T* const begin = rv::elementsOf<T>(array);
    return { begin, begin + rv::totalElements(array) };
}

inline std::vector<std::string> stringsOf(const RtArray* array)
{
    std::vector<std::string> all;
    for (const char* s : valuesOf<const char*>(array))
        all.push_back(s ? s : "(null)");
    return all;
}

// An array over a buffer of the test; destroys the record at the end of the scope.
struct Wrapped {
    template <class T, size_t n>
    Wrapped(T (&values)[n], int type, int nkeys = 1)
        : array(RvArrayConvert(static_cast<int>(n) / nkeys, nkeys, type, values, false))
    {
    }
    ~Wrapped() { RvArrayDestroy(array); }
    operator RtArray*() const { return array; }
    RtArray* operator->() const { return array; }
    RtArray* array;
};

// Destroys an array at the end of the scope.
struct Owned {
    Owned(RtArray* a) : array(a) { EXPECT_NE(nullptr, a); }
    ~Owned() { RvArrayDestroy(array); }
    operator RtArray*() const { return array; }
    RtArray* operator->() const { return array; }
    RtArray* array;
};

inline const RtMatrix counted_matrix = {
    { { 1, 2, 3, 4 }, { 5, 6, 7, 8 }, { 9, 10, 11, 12 }, { 13, 14, 15, 16 } }
};

inline bool equal(const RtMatrix& a, const RtMatrix& b) { return !memcmp(&a, &b, sizeof(a)); }

#endif
