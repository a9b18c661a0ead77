#pragma once

#include <log4cpp/AppenderSkeleton.hh>
#include <log4cpp/Category.hh>
#include <log4cpp/LoggingEvent.hh>
#include <log4cpp/Priority.hh>

#include <functional>
#include <utility>

namespace camclock::test {

/// Hands every event of a log4cpp category to a callable, on the logging thread, while it lives: the category
/// takes INFO (or the given priority), passes nothing on to its parents, and is put back as it was at the
/// end.
///
/// Make it before the objects that log: log4cpp's categories do not like their priority to change while they
/// are used.
class CategoryTap {
public:
    using Take = std::function<void(const log4cpp::LoggingEvent&)>;

    CategoryTap(log4cpp::Category& category, Take take,
                log4cpp::Priority::Value priority = log4cpp::Priority::INFO)
        : category_(category)
        , oldPriority_(category.getPriority())
        , oldAdditivity_(category.getAdditivity())
        , appender_(std::move(take)) {
        category_.addAppender(appender_);
        category_.setAdditivity(false);
        category_.setPriority(priority);
    }

    ~CategoryTap() {
        category_.setPriority(oldPriority_);
        category_.setAdditivity(oldAdditivity_);
        category_.removeAppender(&appender_);
    }

    CategoryTap(const CategoryTap&) = delete;
    CategoryTap& operator=(const CategoryTap&) = delete;

    /// Changes what the category takes; no other thread logs meanwhile.
    void SetPriority(log4cpp::Priority::Value priority) { category_.setPriority(priority); }

private:
    class Appender : public log4cpp::AppenderSkeleton {
    public:
        explicit Appender(Take take)
            : AppenderSkeleton("category tap")
            , take_(std::move(take)) {}
        void close() override {}
        bool requiresLayout() const override { return false; }
        void setLayout(log4cpp::Layout*) override {}

    protected:
        void _append(const log4cpp::LoggingEvent& event) override { take_(event); }

    private:
        Take take_;
    };

    log4cpp::Category& category_;
    log4cpp::Priority::Value oldPriority_;
    bool oldAdditivity_;
    Appender appender_;
};

}  // namespace camclock::test
