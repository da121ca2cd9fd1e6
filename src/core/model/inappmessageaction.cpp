#include "model/inappmessageaction.h"

#include <algorithm>

namespace velmora {

void sortForDisplay(QList<InAppMessageAction> &actions)
{
    std::stable_sort(actions.begin(), actions.end(),
                     [](const InAppMessageAction &a, const InAppMessageAction &b) {
                         if (a.meta.priority != b.meta.priority)
                             return a.meta.priority > b.meta.priority;
                         return a.meta.updatedDate > b.meta.updatedDate;
                     });
}

} // namespace velmora
