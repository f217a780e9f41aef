// The topic attributes and the durability that writers and readers announce.
#pragma once

#include <fastdds/rtps/common/Types.h>
#include <fastrtps/attributes/TopicAttributes.h>
#include <fastrtps/qos/QosPolicies.h>
#include <string>
#include <utility>

#include "v2x/v2xdds.h"
#include "v2xdds_cdr.h"

inline eprosima::fastrtps::TopicAttributes v2xdds_TopicAttributes(const std::string& topic) {
    eprosima::fastrtps::TopicAttributes attributes(topic.c_str(), V2XDDS_TYPE_NAME);
    // Announce the name of the type only, without a type description.
    attributes.auto_fill_type_object = false;
    attributes.auto_fill_type_information = false;
    return attributes;
}

// Returns the durability of `setting` as two types of Fast DDS: one for the RTPS layer, one for discovery.
inline std::pair<eprosima::fastrtps::rtps::DurabilityKind_t, eprosima::fastrtps::DurabilityQosPolicyKind>
v2xdds_DurabilityOf(dds_historySetting setting) {
    if (setting == DDS_HISTORY_REAL_TIME) {
        return {eprosima::fastrtps::rtps::VOLATILE, eprosima::fastrtps::VOLATILE_DURABILITY_QOS};
    }
    return {eprosima::fastrtps::rtps::TRANSIENT_LOCAL, eprosima::fastrtps::TRANSIENT_LOCAL_DURABILITY_QOS};
}
