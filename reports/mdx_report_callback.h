// SPDX-License-Identifier: Apache-2.0

// The report handlers: one for each unsolicited report that leads anywhere.
//
// A handler takes one line apart and tells the rest of the device what it says (destinations.h,
// report_records.h). It sends no AT command, answers no client and never blocks. A line that cannot
// be parsed is traced and lost. Two things outlive a call: the stored ^RSSI line and the count of
// ^DSFLOWRPT reports. Main thread only.
//
// All of them take the whole line: `rptbuf`, NUL-terminated and writable, the prefix anywhere in
// it, valid during the call; `length`, its length as the framing counted it, which is greater than
// the text's where the line holds NUL bytes.
#pragma once

#include <cstdint>

// Voice calls (voice.cpp): one call record to the voice service each, whatever a line says.
void cs_orig_report_callback(char* rptbuf, int32_t length);           ///< ^ORIG
void cs_conf_report_callback(char* rptbuf, int32_t length);           ///< ^CONF
void cs_conn_report_callback(char* rptbuf, int32_t length);           ///< ^CONN
void cs_cend_report_callback(char* rptbuf, int32_t length);           ///< ^CEND
void cs_ring_report_callback(char* rptbuf, int32_t length);           ///< RING, IRING
void cs_clip_report_callback(char* rptbuf, int32_t length);           ///< +CLIP
void cs_ccwa_report_callback(char* rptbuf, int32_t length);           ///< +CCWA
void cs_ccwa_ims_report_callback(char* rptbuf, int32_t length);       ///< ^CCWA
void cs_xlema_report_callback(char* rptbuf, int32_t length);          ///< XLEMA
void cs_ccallstate_report_callback(char* rptbuf, int32_t length);     ///< ^CCALLSTATE
void cs_cschannelinfo_report_callback(char* rptbuf, int32_t length);  ///< ^CSCHANNELINFO

// Data connections (data.cpp): up or down, to the dial-up service.
void dconn_report_callback(char* rptbuf, int32_t length);       ///< ^DCONN
void dend_report_callback(char* rptbuf, int32_t length);        ///< ^DEND
void ndisstat_report_callback(char* rptbuf, int32_t length);    ///< ^NDISSTAT
void ndisstatex_report_callback(char* rptbuf, int32_t length);  ///< ^NDISSTATEX
void apdialup_report_callback(char* rptbuf, int32_t length);  ///< ^APDIALUPRPT: parsed and dropped

// Network and signal (network.cpp).
void creg_report_callback(char* rptbuf, int32_t length);                ///< +CREG, +CGREG
void redirect_noservice_report_callback(char* rptbuf, int32_t length);  ///< ^SRVST
void mode_report_callback(char* rptbuf, int32_t length);                ///< ^MODE
void ltecacell_report_callback(char* rptbuf, int32_t length);           ///< ^LCACELLURC
void net_eons_report_callback(char* rptbuf, int32_t length);            ///< ^EONS
void anelvel_report_callback(char* rptbuf, int32_t length);             ///< ^ANLEVEL
/// ^HCSQ. A negative `length` is refused.
void hcsq_report_callback(char* rptbuf, int32_t length);
/// ^RSSI: keeps the line for clients that ask for it and sends nothing. A line of more than
/// MAX_ATCMD_REPORT_SIZE bytes is refused and the stored one stays.
void rssi_report_callback(char* rptbuf, int32_t length);
void ltesiglev_report_callback(char* rptbuf, int32_t length);  ///< ^LTESIGLEV: traces alone
void hfreqinfo_report_callback(char* rptbuf, int32_t length);  ///< ^HFREQINFO
void net_time_report_callback(char* rptbuf, int32_t length);   ///< ^NWTIME
void aproaming_report_callback(char* rptbuf, int32_t length);  ///< ^APROAMRPT
void rejinfo_report_callback(char* rptbuf, int32_t length);    ///< ^REJINFO: traces alone

// SMS (sms.cpp).
void sms_content_report_callback(char* rptbuf, int32_t length);   ///< +CMT, +CDS, +CBM
void sms_index_report_callback(char* rptbuf, int32_t length);     ///< +CMTI, +CDSI
void sms_hcmgss_report_callback(char* rptbuf, int32_t length);    ///< ^HCMGSS
void sms_hcmgsf_report_callback(char* rptbuf, int32_t length);    ///< ^HCMGSF
void sms_mem_full_report_callback(char* rptbuf, int32_t length);  ///< ^SMMEMFULL

// SIM, USSD, SIM toolkit and supplementary services (sim.cpp).
void simst_report_callback(char* rptbuf, int32_t length);        ///< ^SIMST: five receivers
void exsimst_report_callback(char* rptbuf, int32_t length);      ///< ^EXSIMST: traces alone
void sim_refresh_report_callback(char* rptbuf, int32_t length);  ///< ^SIMREFRESH
/// +CUSD. Reads `length`: the line may hold zero bytes, and they are replaced in place.
void cusd_report_callback(char* rptbuf, int32_t length);
void stin_report_callback(char* rptbuf, int32_t length);  ///< ^STIN
void cssi_report_callback(char* rptbuf, int32_t length);  ///< +CSSI: parsed and dropped
void cssu_report_callback(char* rptbuf, int32_t length);  ///< +CSSU: parsed and dropped
void ims_cireg_report_callback(char* rptbuf,
                               int32_t length);  ///< +CIREGU: traces alone; in no table

// The device itself and its traffic (device.cpp).
void norstfact_report_callback(char* rptbuf, int32_t length);  ///< ^NORSTFACT
void tempprt_report_callback(char* rptbuf, int32_t length);    ///< ^TEMPPRT
void wakeupin_report_callback(char* rptbuf, int32_t length);   ///< ^WAKEUPIN
void factory_report_callback(char* rptbuf, int32_t length);    ///< ^FACTORY
void mmi_enter_report_callback(char* rptbuf, int32_t length);  ///< ^MMIENTER
/// ^DSFLOWRPT. Counts every report, also one that cannot be parsed; at a good one whose count is a
/// multiple of ten "cms" is told as well and the count starts again.
void dsflow_report_callback(char* rptbuf, int32_t length);
