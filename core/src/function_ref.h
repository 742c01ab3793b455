// A reference to something callable, for the length of a call. Unlike std::function it owns nothing
// and needs no memory.
#ifndef RV_FUNCTION_REF_H
#define RV_FUNCTION_REF_H

namespace rv {

template <class Signature> class FunctionRef;

template <class Result, class... Args> class FunctionRef<Result(Args...)> {
public:
    template <class Function>
    FunctionRef(const Function& function)
        : target(&function), call([](const void* f, Args... args) -> Result {
              return (*static_cast<const Function*>(f))(args...);
          })
    {
    }
    FunctionRef(const FunctionRef&) = default;

    Result operator()(Args... args) const { return call(target, args...); }

private:
    const void* target;
    Result (*call)(const void*, Args...);
};

} // namespace rv

#endif
