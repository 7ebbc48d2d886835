// SPDX-License-Identifier: Apache-2.0

// Every handler of the report table, doing nothing but leave its name: sorting is measured, not
// what comes of it.

#include "reports/mdx_report_callback.h"

const char* bench_handler = "";

#define DOES_NOTHING(name) \
  void name(char*, int32_t) { bench_handler = #name; }

DOES_NOTHING(anelvel_report_callback)
DOES_NOTHING(apdialup_report_callback)
DOES_NOTHING(aproaming_report_callback)
DOES_NOTHING(creg_report_callback)
DOES_NOTHING(cs_ccallstate_report_callback)
DOES_NOTHING(cs_ccwa_ims_report_callback)
DOES_NOTHING(cs_ccwa_report_callback)
DOES_NOTHING(cs_cend_report_callback)
DOES_NOTHING(cs_clip_report_callback)
DOES_NOTHING(cs_conf_report_callback)
DOES_NOTHING(cs_conn_report_callback)
DOES_NOTHING(cs_cschannelinfo_report_callback)
DOES_NOTHING(cs_orig_report_callback)
DOES_NOTHING(cs_ring_report_callback)
DOES_NOTHING(cs_xlema_report_callback)
DOES_NOTHING(cssi_report_callback)
DOES_NOTHING(cssu_report_callback)
DOES_NOTHING(cusd_report_callback)
DOES_NOTHING(dconn_report_callback)
DOES_NOTHING(dend_report_callback)
DOES_NOTHING(dsflow_report_callback)
DOES_NOTHING(exsimst_report_callback)
DOES_NOTHING(factory_report_callback)
DOES_NOTHING(hcsq_report_callback)
DOES_NOTHING(hfreqinfo_report_callback)
DOES_NOTHING(ltecacell_report_callback)
DOES_NOTHING(ltesiglev_report_callback)
DOES_NOTHING(mdx_report_callback)
DOES_NOTHING(mmi_enter_report_callback)
DOES_NOTHING(mode_report_callback)
DOES_NOTHING(ndisstat_report_callback)
DOES_NOTHING(ndisstatex_report_callback)
DOES_NOTHING(net_eons_report_callback)
DOES_NOTHING(net_time_report_callback)
DOES_NOTHING(norstfact_report_callback)
DOES_NOTHING(redirect_noservice_report_callback)
DOES_NOTHING(rejinfo_report_callback)
DOES_NOTHING(rssi_report_callback)
DOES_NOTHING(sim_refresh_report_callback)
DOES_NOTHING(simst_report_callback)
DOES_NOTHING(sms_content_report_callback)
DOES_NOTHING(sms_hcmgsf_report_callback)
DOES_NOTHING(sms_hcmgss_report_callback)
DOES_NOTHING(sms_index_report_callback)
DOES_NOTHING(sms_mem_full_report_callback)
DOES_NOTHING(stin_report_callback)
DOES_NOTHING(tempprt_report_callback)
DOES_NOTHING(wakeupin_report_callback)
