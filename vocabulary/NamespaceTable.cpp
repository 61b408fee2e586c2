// Namespace URIs with an id of their own, ids 201 to 311. A row's position is
// its id on the wire, so rows never move; reserved rows keep their places.
// Constant data only, initialised at compile time; readable from any thread at
// any time, before static initialisation included. Generated from the vocabulary
// listing; the lookup code lives in KVXDefaultMap.cpp.
#include "vocabulary/VocabularyTables.h"

#include "vocabulary/NamespaceBase.h"

namespace KVX {
namespace Internal {

CharArray const NamespaceTable[NamespaceRowCount] = {
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/alerts"),             // 201
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/backm"),              // 202
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/kvagent"),            // 203
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/kvagenttypes"),       // 204
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/dbm"),                // 205
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/dev"),                // 206
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/filem"),              // 207
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/ftpc"),               // 208
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/fwm"),                // 209
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/global"),             // 210
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/httpc"),              // 211
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/hw_cpu"),             // 212
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/hw_disk"),            // 213
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/hw_load_avg"),        // 214
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/hw_memory"),          // 215
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/hw_net"),             // 216
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/hwm"),                // 217
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/license"),            // 218
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/lim"),                // 219
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/mailc"),              // 220
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/mailerc"),            // 221
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/nbh"),                // 222
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/proc"),               // 223
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/process_info"),       // 224
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/progm"),              // 225
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/kvagentprotocol"),    // 226
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/resourcer"),          // 227
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/restart"),            // 228
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/sem"),                // 229
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/sem_event"),          // 230
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/system"),             // 231
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/system_info"),        // 232
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/tbs"),                // 233
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/tem"),                // 234
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/ticketm"),            // 235
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/ubcs"),               // 236
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/ugm"),                // 237
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/ve_conf"),            // 238
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/ve_cpu"),             // 239
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/ve_load_avg"),        // 240
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/ve_net"),             // 241
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/ve_quota"),           // 242
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/ve_status"),          // 243
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/vem"),                // 244
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/kv_conf"),            // 245
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/types"),              // 246
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/protocol"),           // 247
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/core_types"),         // 248
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/dbcompress"),         // 249
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/director"),           // 250
    CharArray(),                                                              // 251 reserved
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/operators"),          // 252
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/progress_event"),     // 253
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/sql"),                // 254
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/elemen"),             // 255
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/ve_cache"),           // 256
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/webcp"),              // 257
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/migrator"),           // 258
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/kvup2date"),          // 259
    tableRow(KVX_NAMESPACE_HOST "/webservices/kva/3.0.3/pkgm"),               // 260
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/snapshotm"),          // 261
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/authm"),              // 262
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/server_group"),       // 263
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/envm"),               // 264
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/env_samplem"),        // 265
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/op_log"),             // 266
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/perf_mon"),           // 267
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/event_log"),          // 268
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/res_log"),            // 269
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/dirm"),               // 270
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/sessionm"),           // 271
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/pager"),              // 272
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/computerm"),          // 273
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/filer"),              // 274
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/processm"),           // 275
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/servicem"),           // 276
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/userm"),              // 277
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/devm"),               // 278
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/firewallm"),          // 279
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/env_event_mon"),      // 280
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/resourcem"),          // 281
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/backupm"),            // 282
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/scheduler"),          // 283
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/licensem"),           // 284
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/alertm"),             // 285
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/data_storagem"),      // 286
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/mailer"),             // 287
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/mail_configurator"),  // 288
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/ftp_configurator"),   // 289
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/http_configurator"),  // 290
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/securitym"),          // 291
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/types"),              // 292
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/director"),           // 293
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/migrator"),           // 294
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/process_info"),       // 295
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/progress_event"),     // 296
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/protocol"),           // 297
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/system"),             // 298
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/networkm"),           // 299
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/backup_storagem"),    // 300
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/infrastructurem"),    // 301
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/packagem"),           // 302
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/proc_info"),          // 303
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/relocator"),          // 304
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/sso"),                // 305
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/ip_pool"),            // 306
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/user_profile"),       // 307
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/disk_image_library"), // 308
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/policym"),            // 309
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/policysl"),           // 310
    tableRow(KVX_NAMESPACE_HOST "/webservices/kvx/4.0.0/sample_manager"),     // 311
};

} // namespace Internal
} // namespace KVX
