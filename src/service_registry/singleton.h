// One process-wide instance of T, built on first use. T derives from Singleton<T>.
#ifndef VKS_SINGLETON_H
#define VKS_SINGLETON_H

// Default visibility keeps the function-local instance a unique object: every shared object of the
// host process that instantiates Singleton<T> binds to the same instance instead of its own copy.
template <typename T>
class __attribute__((visibility("default"))) Singleton {
public:
    // The first caller builds the instance (thread-safe one-time construction of a local static) and
    // registers its destructor to run at unload; concurrent first callers wait for that construction.
    static T& GetInstance() {
        static T m_Instance;
        return m_Instance;
    }

protected:
    Singleton() = default;
    ~Singleton() = default;
};

#endif
