// The functions of the system, of OpenSSL and of Expat that the security library calls: those that can fail, and how,
// and those that cannot.
//
// Purpose: one list for the linker, which leads the first kind to Faults.cpp, for the sweeps over it, and for the test
//   that holds it against what the library's objects ask for. The build takes the names from the lines of this file.
// Errors: a refused call gives what its last column says, as the function's own failure does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

// One line for each function, however long. The build reads the first words of a line: SYSTEM(name on 64 bits, name on
// 32 bits or TLS(name.
// clang-format off

// Name of the symbol with 64-bit words, and with 32-bit ones, where files and times have their large kinds by other names;
// result, name here, parameters, arguments, what a refused call gives.
#define SYSTEM_CALLS(SYSTEM) \
    SYSTEM(socket, socket, int, socket, (int family, int type, int protocol), (family, type, protocol), refuse(EMFILE)) \
    SYSTEM(connect, connect, int, connect, (int descriptor, const sockaddr* address, socklen_t length), (descriptor, address, length), refuse(ECONNREFUSED)) \
    SYSTEM(bind, bind, int, bind, (int descriptor, const sockaddr* address, socklen_t length), (descriptor, address, length), refuse(EADDRINUSE)) \
    SYSTEM(listen, listen, int, listen, (int descriptor, int backlog), (descriptor, backlog), refuse(EADDRINUSE)) \
    SYSTEM(accept4, accept4, int, accept4, (int listener, sockaddr* peer, socklen_t* length, int flags), (listener, peer, length, flags), refuse(EMFILE)) \
    SYSTEM(poll, poll, int, poll, (pollfd* entries, nfds_t count, int limitMs), (entries, count, limitMs), refuse(ENOMEM)) \
    SYSTEM(send, send, ssize_t, send, (int descriptor, const void* data, std::size_t size, int flags), (descriptor, data, size, flags), refuse(ECONNRESET)) \
    SYSTEM(recv, recv, ssize_t, recv, (int descriptor, void* data, std::size_t size, int flags), (descriptor, data, size, flags), refuse(ECONNRESET)) \
    SYSTEM(shutdown, shutdown, int, shutdown, (int descriptor, int how), (descriptor, how), refuse(ENOTCONN)) \
    SYSTEM(getsockname, getsockname, int, getsockname, (int descriptor, sockaddr* address, socklen_t* length), (descriptor, address, length), refuse(ENOBUFS)) \
    SYSTEM(getpeername, getpeername, int, getpeername, (int descriptor, sockaddr* address, socklen_t* length), (descriptor, address, length), refuse(ENOTCONN)) \
    SYSTEM(getsockopt, __getsockopt64, int, getsockopt, (int descriptor, int level, int option, void* value, socklen_t* length), (descriptor, level, option, value, length), refuse(ENOBUFS)) \
    SYSTEM(setsockopt, __setsockopt64, int, setsockopt, (int descriptor, int level, int option, const void* value, socklen_t length), (descriptor, level, option, value, length), refuse(ENOBUFS)) \
    SYSTEM(getaddrinfo, getaddrinfo, int, getaddrinfo, (const char* host, const char* port, const addrinfo* hints, addrinfo** list), (host, port, hints, list), EAI_MEMORY) \
    SYSTEM(getnameinfo, getnameinfo, int, getnameinfo, (const sockaddr* address, socklen_t length, char* host, socklen_t hostSize, char* port, socklen_t portSize, int flags), (address, length, host, hostSize, port, portSize, flags), EAI_MEMORY) \
    SYSTEM(inet_ntop, inet_ntop, const char*, inet_ntop, (int family, const void* address, char* text, socklen_t size), (family, address, text, size), (refuse(ENOSPC), nullptr)) \
    SYSTEM(open64, open64, int, open, (const char* path, int flags, mode_t mode), (path, flags, mode), refuse(EMFILE)) \
    SYSTEM(read, read, ssize_t, read, (int descriptor, void* data, std::size_t size), (descriptor, data, size), refuse(EIO)) \
    SYSTEM(fstat64, __fstat64_time64, int, fstat, (int descriptor, struct stat* status), (descriptor, status), refuse(EIO)) \
    SYSTEM(stat64, __stat64_time64, int, stat, (const char* path, struct stat* status), (path, status), refuse(ENOMEM)) \
    SYSTEM(lstat64, __lstat64_time64, int, lstat, (const char* path, struct stat* status), (path, status), refuse(ENOMEM)) \
    SYSTEM(opendir, opendir, DIR*, opendir, (const char* path), (path), (refuse(EMFILE), nullptr)) \
    SYSTEM(readdir64, readdir64, dirent*, readdir, (DIR* folder), (folder), (refuse(EIO), nullptr)) \
    SYSTEM(fcntl64, __fcntl_time64, int, fcntl, (int descriptor, int command, long argument), (descriptor, command, argument), refuse(EMFILE)) \
    SYSTEM(malloc, malloc, void*, malloc, (std::size_t size), (size), (refuse(ENOMEM), nullptr))

// A refused one leaves "internal error" as OpenSSL's reason.
#define TLS_CALLS(TLS) \
    TLS(OPENSSL_init_crypto, int, (std::uint64_t options, const OPENSSL_INIT_SETTINGS* settings), (options, settings), 0) \
    TLS(SSL_CTX_new, SSL_CTX*, (const SSL_METHOD* method), (method), nullptr) \
    TLS(SSL_CTX_up_ref, int, (SSL_CTX* context), (context), 0) \
    TLS(SSL_CTX_check_private_key, int, (const SSL_CTX* context), (context), 0) \
    TLS(SSL_CTX_set_session_id_context, int, (SSL_CTX* context, const unsigned char* id, unsigned length), (context, id, length), 0) \
    TLS(SSL_CONF_CTX_new, SSL_CONF_CTX*, (), (), nullptr) \
    TLS(SSL_CONF_CTX_finish, int, (SSL_CONF_CTX* commands), (commands), 0) \
    TLS(SSL_CONF_cmd, int, (SSL_CONF_CTX* commands, const char* name, const char* value), (commands, name, value), 0) \
    TLS(SSL_new, SSL*, (SSL_CTX* context), (context), nullptr) \
    TLS(SSL_ctrl, long, (SSL* ssl, int command, long number, void* place), (ssl, command, number, place), 0) \
    TLS(SSL_set1_host, int, (SSL* ssl, const char* host), (ssl, host), 0) \
    TLS(SSL_set_ex_data, int, (SSL* ssl, int index, void* data), (ssl, index, data), 0) \
    TLS(SSL_get1_supported_ciphers, STACK_OF(SSL_CIPHER)*, (SSL* ssl), (ssl), nullptr) \
    TLS(SSL_do_handshake, int, (SSL* ssl), (ssl), -1) \
    TLS(SSL_read_ex, int, (SSL* ssl, void* data, std::size_t size, std::size_t* count), (ssl, data, size, count), 0) \
    TLS(SSL_peek_ex, int, (SSL* ssl, void* data, std::size_t size, std::size_t* count), (ssl, data, size, count), 0) \
    TLS(SSL_write_ex, int, (SSL* ssl, const void* data, std::size_t size, std::size_t* count), (ssl, data, size, count), 0) \
    TLS(SSL_shutdown, int, (SSL* ssl), (ssl), -1) \
    TLS(BIO_new, BIO*, (const BIO_METHOD* method), (method), nullptr) \
    TLS(BIO_new_mem_buf, BIO*, (const void* data, int size), (data, size), nullptr) \
    TLS(NCONF_new, CONF*, (CONF_METHOD* method), (method), nullptr) \
    TLS(NCONF_load_bio, int, (CONF* conf, BIO* input, long* line), (conf, input, line), 0) \
    TLS(NCONF_get_section, STACK_OF(CONF_VALUE)*, (const CONF* conf, const char* name), (conf, name), nullptr) \
    TLS(NCONF_get_section_names, STACK_OF(OPENSSL_CSTRING)*, (const CONF* conf), (conf), nullptr) \
    TLS(NCONF_get_string, char*, (const CONF* conf, const char* section, const char* name), (conf, section, name), nullptr) \
    TLS(PEM_read_bio_X509_AUX, X509*, (BIO* input, X509** place, pem_password_cb* ask, void* data), (input, place, ask, data), nullptr) \
    TLS(PEM_read_bio_X509_CRL, X509_CRL*, (BIO* input, X509_CRL** place, pem_password_cb* ask, void* data), (input, place, ask, data), nullptr) \
    TLS(OSSL_STORE_attach, OSSL_STORE_CTX*, (BIO* input, const char* scheme, OSSL_LIB_CTX* library, const char* query, const UI_METHOD* ui, void* uiData, const OSSL_PARAM* parameters, OSSL_STORE_post_process_info_fn process, void* data), (input, scheme, library, query, ui, uiData, parameters, process, data), nullptr) \
    TLS(OSSL_STORE_load, OSSL_STORE_INFO*, (OSSL_STORE_CTX* store), (store), nullptr) \
    TLS(X509_STORE_new, X509_STORE*, (), (), nullptr) \
    TLS(X509_STORE_add_cert, int, (X509_STORE* store, X509* certificate), (store, certificate), 0) \
    TLS(X509_STORE_add_crl, int, (X509_STORE* store, X509_CRL* list), (store, list), 0) \
    TLS(X509_VERIFY_PARAM_set_flags, int, (X509_VERIFY_PARAM* parameters, unsigned long flags), (parameters, flags), 0) \
    TLS(X509_VERIFY_PARAM_set1_ip_asc, int, (X509_VERIFY_PARAM* parameters, const char* address), (parameters, address), 0) \
    TLS(X509_VERIFY_PARAM_get1_ip_asc, char*, (X509_VERIFY_PARAM* parameters), (parameters), nullptr) \
    TLS(X509_NAME_hash_ex, unsigned long, (const X509_NAME* name, OSSL_LIB_CTX* library, const char* query, int* isGood), (name, library, query, isGood), hashless(isGood)) \
    TLS(X509_NAME_print_ex, int, (BIO* output, const X509_NAME* name, int indent, unsigned long flags), (output, name, indent, flags), -1) \
    TLS(X509_get_ext_d2i, void*, (const X509* certificate, int kind, int* critical, int* index), (certificate, kind, critical, index), nullptr) \
    TLS(X509_check_host, int, (X509* certificate, const char* name, std::size_t size, unsigned flags, char** found), (certificate, name, size, flags, found), -1) \
    TLS(X509_check_ip_asc, int, (X509* certificate, const char* address, unsigned flags), (certificate, address, flags), -1) \
    TLS(X509_digest, int, (const X509* certificate, const EVP_MD* kind, unsigned char* digest, unsigned* length), (certificate, kind, digest, length), 0) \
    TLS(ASN1_TIME_to_tm, int, (const ASN1_TIME* time, std::tm* parts), (time, parts), 0) \
    TLS(RAND_bytes_ex, int, (OSSL_LIB_CTX* library, unsigned char* place, std::size_t size, unsigned strength), (library, place, size, strength), 0) \
    TLS(XML_ParserCreateNS, XML_Parser, (const XML_Char* encoding, XML_Char separator), (encoding, separator), nullptr) \
    TLS(XML_Parse, XML_Status, (XML_Parser parser, const char* text, int size, int isFinal), (parser, text, size, isFinal), XML_STATUS_ERROR)

// As above, but the commands that only set a field cannot fail.
#define TLS_CONTROL_CALLS(TLS) \
    TLS(SSL_CTX_ctrl, long, (SSL_CTX* context, int command, long number, void* place), (context, command, number, place), 0)

// As above, but called once in a process.
#define FIRST_TLS_CALLS(TLS) \
    TLS(CRYPTO_get_ex_new_index, int, (int kind, long number, void* data, CRYPTO_EX_new* make, CRYPTO_EX_dup* copy, CRYPTO_EX_free* release), (kind, number, data, make, copy, release), -1) \
    TLS(BIO_get_new_index, int, (), (), -1) \
    TLS(BIO_meth_new, BIO_METHOD*, (int type, const char* name), (type, name), nullptr) \
    TLS(BIO_meth_set_write, int, (BIO_METHOD* method, int (*function)(BIO*, const char*, int)), (method, function), 0) \
    TLS(BIO_meth_set_read, int, (BIO_METHOD* method, int (*function)(BIO*, char*, int)), (method, function), 0) \
    TLS(BIO_meth_set_ctrl, int, (BIO_METHOD* method, long (*function)(BIO*, int, long, void*)), (method, function), 0) \
    TLS(BIO_meth_set_destroy, int, (BIO_METHOD* method, int (*function)(BIO*)), (method, function), 0)

// clang-format on

// What cannot fail: it reads or sets a field, looks up a table, gives something back, or answers a question.
#define SURE_CALLS(SURE)                          \
    SURE(ASN1_STRING_get0_data)                   \
    SURE(ASN1_STRING_length)                      \
    SURE(BIO_clear_flags)                         \
    SURE(BIO_ctrl) /* the text of a memory BIO */ \
    SURE(BIO_free)                                \
    SURE(BIO_get_data)                            \
    SURE(BIO_meth_free)                           \
    SURE(BIO_s_mem)                               \
    SURE(BIO_set_data)                            \
    SURE(BIO_set_flags)                           \
    SURE(BIO_set_init)                            \
    SURE(CRYPTO_free)                             \
    SURE(ERR_clear_error)                         \
    SURE(ERR_get_error_all)                       \
    SURE(ERR_peek_error)                          \
    SURE(ERR_peek_last_error)                     \
    SURE(ERR_reason_error_string)                 \
    SURE(EVP_sha256)                              \
    SURE(GENERAL_NAMES_free)                      \
    SURE(GENERAL_NAME_get0_value)                 \
    SURE(NCONF_free)                              \
    SURE(OPENSSL_sk_free)                         \
    SURE(OPENSSL_sk_num)                          \
    SURE(OPENSSL_sk_value)                        \
    SURE(OSSL_STORE_INFO_free)                    \
    SURE(OSSL_STORE_INFO_get0_CERT)               \
    SURE(OSSL_STORE_INFO_get0_CRL)                \
    SURE(OSSL_STORE_close)                        \
    SURE(OSSL_STORE_eof)                          \
    SURE(SSL_CIPHER_get_auth_nid)                 \
    SURE(SSL_CIPHER_get_cipher_nid)               \
    SURE(SSL_CIPHER_get_name)                     \
    SURE(SSL_CONF_CTX_free)                       \
    SURE(SSL_CONF_CTX_set_flags)                  \
    SURE(SSL_CONF_CTX_set_ssl_ctx)                \
    SURE(SSL_CONF_cmd_value_type)                 \
    SURE(SSL_CTX_clear_options)                   \
    SURE(SSL_CTX_free)                            \
    SURE(SSL_CTX_get0_certificate)                \
    SURE(SSL_CTX_get0_param)                      \
    SURE(SSL_CTX_get_cert_store)                  \
    SURE(SSL_CTX_get_verify_mode)                 \
    SURE(SSL_CTX_set_default_passwd_cb)           \
    SURE(SSL_CTX_set_default_passwd_cb_userdata)  \
    SURE(SSL_CTX_set_options)                     \
    SURE(SSL_CTX_set_verify)                      \
    SURE(SSL_free)                                \
    SURE(SSL_get0_param)                          \
    SURE(SSL_get0_peer_certificate)               \
    SURE(SSL_get0_verified_chain)                 \
    SURE(SSL_get_current_cipher)                  \
    SURE(SSL_get_error)                           \
    SURE(SSL_get_ex_data)                         \
    SURE(SSL_get_ex_data_X509_STORE_CTX_idx)      \
    SURE(SSL_get_peer_cert_chain)                 \
    SURE(SSL_get_rbio)                            \
    SURE(SSL_get_verify_mode)                     \
    SURE(SSL_get_verify_result)                   \
    SURE(SSL_get_version)                         \
    SURE(SSL_is_server)                           \
    SURE(SSL_set_accept_state)                    \
    SURE(SSL_set_bio)                             \
    SURE(SSL_set_connect_state)                   \
    SURE(SSL_set_hostflags)                       \
    SURE(TLS_client_method)                       \
    SURE(TLS_server_method)                       \
    SURE(UI_null)                                 \
    SURE(X509_CRL_free)                           \
    SURE(X509_STORE_CTX_get0_cert)                \
    SURE(X509_STORE_CTX_get0_param)               \
    SURE(X509_STORE_CTX_get_current_cert)         \
    SURE(X509_STORE_CTX_get_error)                \
    SURE(X509_STORE_CTX_get_error_depth)          \
    SURE(X509_STORE_CTX_get_ex_data)              \
    SURE(X509_STORE_CTX_set_error)                \
    SURE(X509_STORE_free)                         \
    SURE(X509_VERIFY_PARAM_get0_host)             \
    SURE(X509_free)                               \
    SURE(X509_get0_notAfter)                      \
    SURE(X509_get0_notBefore)                     \
    SURE(X509_get_default_cert_dir)               \
    SURE(X509_get_default_cert_dir_env)           \
    SURE(X509_get_default_cert_file)              \
    SURE(X509_get_default_cert_file_env)          \
    SURE(X509_get_issuer_name)                    \
    SURE(X509_get_subject_name)                   \
    SURE(X509_verify_cert_error_string)           \
    SURE(XML_ErrorString)                         \
    SURE(XML_GetCurrentColumnNumber)              \
    SURE(XML_GetCurrentLineNumber)                \
    SURE(XML_GetErrorCode)                        \
    SURE(XML_ParserFree)                          \
    SURE(XML_SetCharacterDataHandler)             \
    SURE(XML_SetElementHandler)                   \
    SURE(XML_SetEntityDeclHandler)                \
    SURE(XML_SetSkippedEntityHandler)             \
    SURE(XML_SetStartDoctypeDeclHandler)          \
    SURE(XML_SetUserData)                         \
    SURE(XML_StopParser)                          \
    SURE(close)                                   \
    SURE(closedir)                                \
    SURE(free)                                    \
    SURE(freeaddrinfo)                            \
    SURE(gai_strerror)                            \
    SURE(inet_pton)                               \
    SURE(memchr)                                  \
    SURE(memcmp)                                  \
    SURE(memcpy)                                  \
    SURE(memmove)                                 \
    SURE(memset)                                  \
    SURE(pthread_mutex_lock)                      \
    SURE(pthread_mutex_unlock)                    \
    SURE(pthread_once)                            \
    SURE(secure_getenv)                           \
    SURE(snprintf) /* of numbers */               \
    SURE(strcasecmp)                              \
    SURE(strcmp)                                  \
    SURE(strerrordesc_np)                         \
    SURE(strftime)                                \
    SURE(strlen)                                  \
    SURE(strncasecmp)                             \
    SURE(strtoul)
