#pragma once

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlInterface.h"

#include "session/guarded.h"

namespace orrery::mysql {

// Two spellings of one complaint; people search logs for both.
inline constexpr const char* noConnection = "m_Conn not initialized.";
inline constexpr const char* noConnectionBare = "m_Conn not initialized";

}  // namespace orrery::mysql

template <class Request, class Tell>
int GetMySqlInfoExt::forward(const char* tag, const char* nullText, Request request, Tell tell) {
  return orrery::mysql::guarded(evEvent, tag, [&] {
    if (m_Conn == nullptr) return withoutConnection(tag, nullText);
    if (request(*m_Conn) == 0) return 0;
    tell(m_Conn->getLastErrorStr().c_str(), m_Conn->getLastError());
    return keepConnectionError();
  });
}
