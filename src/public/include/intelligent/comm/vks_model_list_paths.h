// Model-list files and library folders of the analysis service. No handler reads them; they are kept
// so that the module's load-time image matches the service's layout. Namespace-scope const objects
// have internal linkage: every unit that includes this header builds its own copies, in this order.
#ifndef VKS_MODEL_LIST_PATHS_H
#define VKS_MODEL_LIST_PATHS_H

#include <string>

const std::string g_faceRecListPath = "/usr/alg_model/face_rec_list.cfg";
const std::string g_qlenCrowdCntListPath = "/usr/alg_model/Qlen_CrowdCnt_list.cfg";
const std::string g_vhdListPath = "/usr/alg_model/vhd_list.cfg";
const std::string g_vhdParallelListPath = "/usr/alg_model/vhd_parallel_list.cfg";
const std::string g_vhdRvnListPath = "/usr/alg_model/vhd_rvn_list.cfg";
const std::string g_facedtDlListPath = "/usr/alg_model/facedt_dl_list.cfg";
const std::string g_facedtDlParallelListPath = "/usr/alg_model/facedt_dl_parallel_list.cfg";
const std::string g_facedtDlCompactListPath = "/usr/alg_model/facedt_dl_compact_list.cfg";
const std::string g_behListPath = "/usr/alg_model/beh_list.cfg";
const std::string g_omniListPath = "/usr/alg_model/omni_list.cfg";
const std::string g_vhdOmniListPath = "/usr/alg_model/vhd_omni_list.cfg";
const std::string g_facedlOmniListPath = "/usr/alg_model/facedl_omni_list.cfg";
const std::string g_behOmniListPath = "/usr/alg_model/beh_omni_list.cfg";
const std::string g_complexBehListPath = "/usr/alg_model/complex_beh_list.cfg";
const std::string g_algModelLibPath = "/usr/alg_model/lib/";
const std::string g_zkItsLibPath = "/usr/alg_model/zk_its/lib";
const std::string g_zkItsVhdFacePath = "/usr/alg_model/zk_its/vhdface/";

#endif
