#include "trace/dwfl_session.h"

Dwfl_Session::Dwfl_Session(const std::string& debug_path)
    : debug_path_(debug_path), debug_path_pointer_(debug_path_.data()), callbacks_(), dwfl_(nullptr)
{
  callbacks_.find_elf = dwfl_build_id_find_elf;
  callbacks_.find_debuginfo = dwfl_standard_find_debuginfo; // beside the file, by build-id, and from debuginfod
  callbacks_.section_address = dwfl_offline_section_address;
  callbacks_.debuginfo_path = &debug_path_pointer_;
  dwfl_ = dwfl_begin(&callbacks_);
}

Dwfl_Session::~Dwfl_Session()
{
  dwfl_end(dwfl_);
}
