// Type-erased value holders of the kiv framework.
//
// A kiv::Any owns at most one kiv::IHolder. The framework stores each
// subscriber's callback in a kiv::Any holding a
// kiv::Holder<std::function<void(T*)>>; a publisher of T finds its callback
// again by asking the Any for exactly that type. Type identity is plain
// std::type_info equality, so a callback registered for another record type
// is never mistaken for the right one.
#ifndef LASERCALI_FRAMEWORK_KIV_ANY_H_
#define LASERCALI_FRAMEWORK_KIV_ANY_H_

#include <memory>
#include <typeinfo>
#include <utility>

namespace kiv {

// Abstract holder. Virtual slots, in order: complete-object destructor,
// deleting destructor, type(), clone().
class IHolder {
 public:
  virtual ~IHolder() = default;
  // The type of the held value.
  virtual const std::type_info& type() const = 0;
  // A new heap copy of this holder; the caller owns it.
  virtual IHolder* clone() const = 0;
};

// Holds one value of type V.
template <typename V>
class Holder final : public IHolder {
 public:
  explicit Holder(const V& v) : value(v) {}

  const std::type_info& type() const override { return typeid(V); }
  IHolder* clone() const override { return new Holder<V>(value); }

  V value;
};

// Owns at most one holder; an empty Any has the type typeid(void).
class Any {
 public:
  Any() = default;
  // Takes ownership of `holder` (may be null).
  explicit Any(IHolder* holder) : holder_(holder) {}
  Any(const Any& other) : holder_(other.holder_ ? other.holder_->clone() : nullptr) {}
  Any(Any&& other) noexcept = default;
  Any& operator=(Any other) noexcept {
    holder_.swap(other.holder_);
    return *this;
  }
  ~Any() = default;

  bool empty() const { return holder_ == nullptr; }
  const std::type_info& type() const { return holder_ ? holder_->type() : typeid(void); }

  // Pointer to the held value when the held type is exactly V, else null
  // (also when empty).
  template <typename V>
  V* get() {
    if (type() != typeid(V)) return nullptr;
    return &static_cast<Holder<V>*>(holder_.get())->value;
  }

  // Gives up ownership of the holder and leaves the Any empty.
  IHolder* release() { return holder_.release(); }

 private:
  std::unique_ptr<IHolder> holder_;  // the only member; null means empty
};

}  // namespace kiv

#endif  // LASERCALI_FRAMEWORK_KIV_ANY_H_
