#pragma once

namespace Velmarin::UI {

// The product's identity as the window and its dialogs show it.
inline constexpr char ProductVersion[] = "1.0.5";
inline constexpr char ProductPageUrl[] = "https://www.velmarin.com.br/";
inline constexpr char RightsHolder[] = "Equipe Velmarin";

} // namespace Velmarin::UI
