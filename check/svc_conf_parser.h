#ifndef CHECK_SVC_CONF_PARSER_H
#define CHECK_SVC_CONF_PARSER_H

#include "check/svc_conf.h"

#include <string>

/// Read `text`, a configuration file or a single directive, as the framework's parser does, its peculiarities included:
/// - A text between quotes goes up to the last such quote in the line.
/// - A quote within a word begins such a text, and the word is lost.
/// - "#" begins a comment anywhere.
/// - A letter and a colon begin a path, as a drive would.
/// - After an error, reading goes on at the next word that begins a directive.
/// - An error within the braces of a stream does not undo the directives before it there that are no modules: they have
///   been executed.
/// - The file ends where a word or a quoted text is 4096 bytes long, where a quoted text is not closed, and at a zero
///   byte.
/// Opens nothing, logs nothing. Any thread.
Svc_Conf parse_svc_conf(const std::string& text);

#endif // CHECK_SVC_CONF_PARSER_H
