/*
 * Conversion between documents and the standard data models for NAT ("the standard form"): JSON of the YANG modules
 * ietf-nat (RFC 8512) and, for MAP-T rules, ietf-softwire-br (RFC 8676), encoded as in RFC 7951.
 *
 * Neither form can express everything that the other can. Everything that would get lost in a conversion is reported as
 * a problem of its own. Text that is not such JSON, or not the configuration of exactly one NAT64, is always an error.
 */
#ifndef CONFIG_IETF_H
#define CONFIG_IETF_H

#include <cstddef>
#include <string>
#include <string_view>

#include "config/document.h"
#include "config/problem.h"

/** Whether a loss is an error, or only a warning and the rest is converted. */
enum class ietf_loss_t : uint8_t { refused, warned };

/** A longer text is an error. */
constexpr size_t ietf_max_bytes = size_t{256} << 20;

/**
 * Parses the standard form. Each problem has the path of the node as its `command`.
 * @return a settled document, undefined after an error.
 */
document_t read_ietf(std::string_view text, ietf_loss_t loss, problems_t &problems);

/**
 * Writes the standard form of a document without errors. The same items give the same bytes. Parsing them gives the
 * same items, apart from the warned losses.
 * @return the text, undefined after an error.
 */
std::string write_ietf(const document_t &document, ietf_loss_t loss, problems_t &problems);

#endif
