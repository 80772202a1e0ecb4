// metrics_text.h: the counters and the newest values, as programs that collect metrics read them.
#ifndef DCH_WEB_METRICS_TEXT_H
#define DCH_WEB_METRICS_TEXT_H

#include <string>
#include <string_view>
#include <vector>

#include "dch/core/counters.h"
#include "dch/core/site_state.h"
#include "dch/web/snapshot.h"

namespace dch {

enum class MetricsForm { openMetrics, text };

// The form that the header Accept prefers; OpenMetrics where it does not matter. Those who read
// pages get text, which a browser shows.
MetricsForm metricsFormFor(std::string_view accept);

// The content's type.
std::string metricsType(MetricsForm form);

// Values have no time of their own: a source that goes off line has none any more, and whoever
// collects them sees that.
std::string metricsText(MetricsForm form, const Counters& counters, const Figures& figures,
                        const Snapshot& snapshot, const std::vector<SiteState>& sites);

}  // namespace dch

#endif  // DCH_WEB_METRICS_TEXT_H
